#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/screen_sharing/messages/GateMessage.h"

namespace zelvo::server {

using platform::gate::ViewerId;
using Time = std::chrono::steady_clock::time_point;
/// IPv4.
using Address = std::array<std::uint8_t, 4>;

/// Why somebody is sent away.
enum class Refusal {
    /// The answer was no.
    No,
    NotAnswered,
    /// Nobody is let in until the next launch.
    Everybody,
    /// This address was refused a moment ago.
    TooSoon,
    /// As many wait as may.
    TooMany,
    HandshakeTooLong,
};

/// Who of those at the door may go on, and who has to leave: one question at a time, in the order
/// in which they became ready, and a price for everything that a stranger can do. Decides only;
/// time is handed in.
class Doorkeeper {
  public:
    struct Limits {
        /// Connections that are not inside: all of them, and from one address.
        std::size_t atTheDoor = 64;
        std::size_t fromOneAddress = 4;
        /// Behind the one who is asked about.
        std::size_t waiting = 4;
        std::chrono::seconds handshake{10};
        std::chrono::seconds answer{60};
        /// After a no; doubles with each further one.
        std::chrono::seconds pause{30};
        std::chrono::seconds longestPause{600};
        /// So many viewers in a row may ask and be gone before an answer, and one more each second;
        /// then nobody is asked about for a moment. A question is a window and a sound, which
        /// strangers may not switch on and off.
        int withdrawals = 20;
        /// Addresses whose pauses are kept.
        std::size_t remembered = 1024;
    };

    Doorkeeper() = default;
    explicit Doorkeeper(const Limits& limits) : limits_(limits) {}

    /// A new connection. False where there is no place for it; it is unknown then.
    bool arrive(ViewerId viewer, const Address& address, Time now);
    /// Its handshake is over: it is asked about, or waits for that, or has to leave (the reason),
    /// and is unknown then.
    std::optional<Refusal> ready(ViewerId viewer, Time now);
    /// It is gone, or inside.
    void leave(ViewerId viewer, Time now);

    /// Who is asked about, until when, and how many wait behind.
    std::optional<ViewerId> asked() const;
    Time askedUntil() const { return askedUntil_; }
    std::size_t waiting() const { return queue_.empty() ? 0 : queue_.size() - 1; }

    /// The answer about whoever is asked about, who leaves the door by it either way. After a no
    /// everybody who waits and came from the same address has to leave, too.
    std::vector<std::pair<ViewerId, Refusal>> answered(bool isYes, Time now);
    /// All that are at the door after their handshakes have to leave, now and from now on.
    std::vector<ViewerId> refuseEverybody(bool isOn);
    /// All at the door, whom a disconnection of everybody concerns.
    std::vector<ViewerId> everybodyAtTheDoor() const;

    /// When `overdue` will next have something.
    Time nextDeadline() const;
    /// Who has to leave now, and why; they are unknown from now on.
    std::vector<std::pair<ViewerId, Refusal>> overdue(Time now);

  private:
    struct Caller {
        Address address{};
        /// Until the handshake is over.
        Time handshakeUntil;
    };
    struct Pause {
        std::chrono::seconds length{};
        Time until;
    };

    std::vector<std::pair<ViewerId, Refusal>> refuseAsked(Refusal refusal, Time now);
    void remove(ViewerId viewer, Time now);
    void remember(const Address& address, Time now);

    Limits limits_;
    std::map<ViewerId, Caller> callers_;
    /// Those whose handshakes are over; the first is asked about.
    std::deque<ViewerId> queue_;
    Time askedUntil_;
    bool refusesEverybody_ = false;
    std::map<Address, Pause> pauses_;
    /// When all questions that were taken back are forgotten.
    Time withdrawnUntil_;
};

}  // namespace zelvo::server
