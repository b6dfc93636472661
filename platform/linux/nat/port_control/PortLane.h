#pragma once

#include <string>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RouterMapping.h"
#include "platform/linux/nat/port_control/PortControlWire.h"

namespace zelvo::platform {

/// One transport of a mapping by NAT-PMP or PCP: asked for, held and renewed, withdrawn.
class PortLane {
  public:
    enum class State : std::uint8_t { Idle, Asking, Held, Deleting, Out };
    enum class Event : std::uint8_t {
        None,
        /// The answer was to nothing that this lane has asked.
        Ignored,
        Granted,
        /// A renewal has begun.
        Renewing,
        /// It was refused, or its lease has run out: see `failure` and `lastWord`.
        Lost,
    };

    /// The wire outlives the lane; the port does, too, and is there before anything is asked.
    PortLane(PortControlWire& wire, DatagramPort* port, Transport transport, const PortWish& wish)
        : wire_(&wire),
          port_(port),
          transport_(transport),
          wished_(wish.lifetime),
          externalPort_(wish.externalPort) {}

    void ask(NatTime now);
    /// Asks again for what is held.
    void renew(NatTime now);
    void withdraw(NatTime now);
    /// Asks once more, for another port: what is mapped has to go first.
    void moveTo(std::uint16_t externalPort, NatTime now);
    /// Takes it for mapped, though this object has not asked.
    void adopt() { state_ = State::Held; }
    /// Lets go of it without a word. What was being withdrawn is not known to be gone.
    void leave();

    Event hear(const PortControlAnswer& answer, NatTime now);
    /// To be called when `nextWake` has come.
    Event step(NatTime now);
    NatTime nextWake() const;

    Transport transport() const { return transport_; }
    bool isHeld() const { return state_ == State::Held; }
    /// Something is, or may be, mapped.
    bool isOpen() const { return state_ != State::Idle && state_ != State::Out; }
    /// False where a withdrawal has not been confirmed.
    bool isConfirmed() const { return confirmed_; }
    /// The wish until it is granted, then what was granted.
    std::uint16_t externalPort() const { return externalPort_; }
    std::chrono::seconds lifetime() const { return lifetime_; }
    NatFailure failure() const { return failure_; }
    const std::string& lastWord() const { return lastWord_; }

  private:
    Event hold(const PortControlAnswer& answer, NatTime now);
    Event lose(NatFailure failure, std::string why, NatTime now);
    Event sendAsk(NatTime now);
    void endWithdrawal(NatTime now);

    PortControlWire* wire_;
    DatagramPort* port_;
    Transport transport_;
    std::chrono::seconds wished_;
    State state_ = State::Idle;
    std::uint16_t externalPort_;
    Retry retry_;
    NatTime renewAt_ = Never;
    NatTime expiresAt_ = Never;
    std::chrono::seconds lifetime_{0};
    /// The port that was asked for by `moveTo`.
    std::uint16_t movedTo_ = 0;
    bool askAgain_ = false;
    bool confirmed_ = true;
    NatFailure failure_ = NatFailure::Silent;
    std::string lastWord_;
};

}  // namespace zelvo::platform
