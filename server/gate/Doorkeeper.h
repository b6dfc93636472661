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
/// IPv4, with zeros behind it, or the network of IPv6 that somebody has to themselves.
using Address = std::array<std::uint8_t, 8>;

/// Why somebody is sent away.
enum class Refusal {
    /// The answer was no.
    No,
    NotAnswered,
    /// Nobody is let in until the next launch.
    Everybody,
    /// Only who has proven the link's key is let in.
    NoProof,
    /// This address was refused a moment ago.
    TooSoon,
    /// As many wait as may.
    TooMany,
    HandshakeTooLong,
};

/// Whether somebody has proven to have the link's key.
enum class Proof { None, Link };

/// Who of those at the door may go on, and who has to leave: one question at a time, those with a
/// proof first and else in the order in which they became ready, and a price for everything that
/// somebody can do. Those with a proof and those without take nothing from each other: each have
/// their own places, pauses and withdrawals. Decides only; time is handed in.
class Doorkeeper {
  public:
    struct Limits {
        /// Connections that are not inside and have no proof (yet): all of them, and from one
        /// address. However many wait without a proof, one more of an address may try to give one.
        std::size_t atTheDoor = 64;
        std::size_t fromOneAddress = 4;
        /// Who has had this long for the handshake gives the place to who comes where there is no
        /// other, so that nobody holds all of them by silence.
        std::chrono::milliseconds undisturbed{500};
        /// Behind the one who is asked about, of each kind.
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
        /// Addresses whose pauses are kept, and attempts that were hung up.
        std::size_t remembered = 1024;
    };

    struct Arrival {
        /// False where there is no place; the viewer is unknown then.
        bool hasPlace = false;
        /// Who had to leave for it, and is unknown now.
        std::optional<ViewerId> pushedOut{};
    };

    Doorkeeper() = default;
    explicit Doorkeeper(const Limits& limits) : limits_(limits) {}

    Arrival arrive(ViewerId viewer, const Address& address, Time now);
    /// Its handshake is over: it is asked about, or waits for that, or has to leave (the reason),
    /// and is unknown then.
    std::optional<Refusal> ready(ViewerId viewer, Proof proof, Time now);
    /// It speaks as those with the link do: others give their places first.
    void isOpener(ViewerId viewer);
    /// It has an answer that shows who has the key the digits. Should it leave before it has proven
    /// anything, its place stays taken for as long as it could have had it: nobody tries fast
    /// whether digits suit.
    void seesDigits(ViewerId viewer);
    /// It is gone, or inside.
    void leave(ViewerId viewer, Time now);
    /// The same for a reason that is not its own.
    void dismiss(ViewerId viewer, Time now);

    /// Who is asked about, until when, and how many wait behind.
    std::optional<ViewerId> asked() const { return asked_; }
    Time askedUntil() const { return askedUntil_; }
    std::size_t waiting() const;

    /// The answer about whoever is asked about, who leaves the door by it either way. After a no
    /// everybody of their kind who waits and came from the same address has to leave, too.
    std::vector<std::pair<ViewerId, Refusal>> answered(bool isYes, Time now);
    /// All that are at the door after their handshakes have to leave, now and from now on.
    std::vector<ViewerId> refuseEverybody(bool isOn, Time now);
    bool refusesEverybody() const { return refusesEverybody_; }
    /// The same of those without a proof.
    std::vector<ViewerId> admitOnlyProven(bool isOn, Time now);
    /// All at the door, whom a disconnection of everybody concerns.
    std::vector<ViewerId> everybodyAtTheDoor() const;

    /// When `overdue` will next have something.
    Time nextDeadline() const;
    /// Who has to leave now, and why; they are unknown from now on.
    std::vector<std::pair<ViewerId, Refusal>> overdue(Time now);

  private:
    struct Caller {
        Address address{};
        /// Until the handshake is over; then Time::max().
        Time handshakeUntil;
        Proof proof = Proof::None;
        bool seesDigits = false;
        bool isOpener = false;

        bool isReady() const { return handshakeUntil == Time::max(); }
    };
    struct Pause {
        std::chrono::seconds length{};
        Time until;
    };
    /// What those of one kind have to themselves.
    struct Kind {
        std::deque<ViewerId> waiting;
        std::map<Address, Pause> pauses;
        /// When all questions that were taken back are forgotten.
        Time withdrawnUntil;
    };
    struct HungUp {
        Address address{};
        Time until;
    };

    Kind& kindOf(const Caller& caller) { return kinds_[static_cast<std::size_t>(caller.proof)]; }
    std::vector<std::pair<ViewerId, Refusal>> refuseAsked(Refusal refusal, Time now);
    std::vector<ViewerId> sendAway(Proof proof, Time now);
    void askNext(Time now);
    void remember(const Caller& caller, Time now);
    void hangUp(const Caller& caller, Time now);
    /// Whose place may be taken of those whose handshakes are not over, from this address or all.
    std::optional<ViewerId> longestThere(const std::optional<Address>& address, Time now) const;

    Limits limits_;
    std::map<ViewerId, Caller> callers_;
    std::array<Kind, 2> kinds_;
    std::optional<ViewerId> asked_;
    Time askedUntil_;
    bool refusesEverybody_ = false;
    bool admitsOnlyProven_ = false;
    std::deque<HungUp> hungUp_;
};

}  // namespace zelvo::server
