#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/NatPortMapping.h"
#include "platform/linux/nat/MappingJournal.h"
#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RouterMapping.h"

namespace zelvo::platform {

/// One open request: keeps one port pair mapped, by whichever protocol the router speaks. All are
/// probed side by side; the first that is answered asks for the mapping, and the next only when it
/// is refused or dawdles, so that one router seldom maps a port twice over. `advance` is called
/// after every turn and when `nextWake` has come.
class PortPairMapping {
  public:
    /// One conversation for each protocol, freshly begun; none where there is no router.
    using Make = std::function<std::vector<std::unique_ptr<RouterMapping>>(const PortWish&)>;
    using Reply = std::function<void(const NatPortMappingReply&)>;

    /// `reply` hears the first outcome, ten seconds after `asked` at the latest, and each later
    /// change.
    PortPairMapping(const NatNetwork& network, Log& log, MappingJournal& journal,
                    const PortWish& wish, NatTime asked, Make make, Reply reply);

    void advance();
    /// Another router, or another address of this host: begins anew, and withdraws the old.
    void routerChanged();
    /// The router may have forgotten, or the host has slept.
    void check();
    /// What the router has told all hosts, by NAT-PMP or PCP.
    void announced(ByteView datagram);
    /// Withdraws. Brings no further reply.
    void close();

    bool isClosed() const { return state_ == State::Closing && leaving_.empty(); }
    NatTime nextWake() const;
    const PortWish& wish() const { return wish_; }

  private:
    enum class State : std::uint8_t { Seeking, Mapped, Waiting, Closing };

    struct Candidate {
        std::unique_ptr<RouterMapping> mapping;
        bool asked = false;
        /// Had something to withdraw when it was lost.
        bool withdraws = false;
        int recordId = -1;
    };

    void beginAnew(NatTime when);
    /// Mapped, and not where others have been told.
    bool isAstray() const;
    void seek();
    void reviewCandidates();
    void reviewWinner();
    void reviewLeaving();
    void giveTurn();
    void win(std::size_t index);
    void lose(Candidate candidate);
    void noteFailure(const RouterMapping& mapping);
    void conclude();
    void dismissAll();
    void report();
    void say(const std::string& text);

    const NatNetwork& network_;
    Log& log_;
    MappingJournal& journal_;
    /// Its external port is the published one once there is one.
    PortWish wish_;
    bool published_ = false;
    Make make_;
    Reply reply_;
    State state_ = State::Waiting;
    std::vector<Candidate> candidates_;
    /// Set in State::Mapped.
    Candidate winner_;
    /// What is being withdrawn.
    std::vector<Candidate> leaving_;
    PortGrant reported_;
    /// Of the search. That of the first outcome stays, however often the network changes.
    NatTime deadline_;
    bool replied_ = false;
    NatTime nextTurn_ = Never;
    NatTime retryAt_;
    NatTime soughtAt_ = NatTime::min();
    /// Something may have taken away what is just being mapped.
    bool checkWhenMapped_ = false;
    std::chrono::seconds retryPause_;
    std::int32_t failureCode_ = NatErrorNone;
};

}  // namespace zelvo::platform
