#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/gate/AnonymousTls.h"
#include "server/gate/Caller.h"
#include "server/gate/Departures.h"
#include "server/gate/Doorkeeper.h"
#include "server/gate/Guest.h"
#include "server/gate/HandshakeBudget.h"
#include "server/gate/HeldLink.h"
#include "server/gate/Returns.h"

namespace zelvo::server {

/// Takes the viewers' connections, has somebody asked about each, and hands those who are let in
/// on. Until then nothing of what a viewer says gets further than the handshake. One thread.
class Gate {
  public:
    struct Handlers {
        /// What Zelvo is told.
        std::function<void(const platform::gate::Message&)> tell;
        /// To have everything handled that Zelvo has said before now.
        std::function<void()> catchUp = {};
        /// A viewer is in: an RFB server without security of its own is to serve this socket.
        std::function<void(ViewerId, platform::FileDescriptor, platform::gate::Rights)> admit;
        std::function<void(ViewerId, platform::gate::Rights)> setRights;
        /// Whether input of viewers counts: where it does not, also what has left the gate already,
        /// and what they hold down is to be let go.
        std::function<void(bool)> setInputPasses;
    };

    /// A socket that has the port on the IPv4 wildcard address, with what every viewer's socket
    /// shall have: a viewer whose network died is noticed within 30 s, and segments fit a path of
    /// 1,280 bytes whose routers say nothing. Empty, with errno, on failure.
    static platform::FileDescriptor bind(std::uint16_t port);
    /// From then on viewers can connect to it. False, with errno, on failure.
    static bool listen(const platform::FileDescriptor& bound);

    /// The socket listens.
    Gate(platform::EventLoop& loop, platform::FileDescriptor listener, Handlers handlers,
         const Doorkeeper::Limits& limits = {});
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    /// Tells those with the link's key that the screen has ended.
    ~Gate();

    /// From now on nobody is let in to do more than watch: the screen takes no input.
    void letOnlyWatch() { letsOnlyWatch_ = true; }

    /// What Zelvo says; other messages do nothing.
    void handle(const platform::gate::Message& message);

    /// When `tick` has to be called next.
    Time nextDeadline() const;
    void tick(Time now);

  private:
    struct GuestEntry {
        /// What Zelvo was told.
        platform::gate::Inside inside;
        std::unique_ptr<Guest> guest;
    };

    static Time now() { return platform::EventLoop::Clock::now(); }
    void accept();
    /// Where a relay saw this one, empty for whom none has brought; none where it cannot be told.
    std::optional<std::string> takeOrigin(const platform::gate::Peer& peer);
    void announce(const platform::gate::Relayed& relayed);
    void callerIsReady(ViewerId viewer);
    void callerIsGone(ViewerId viewer);
    void guestEnded(ViewerId viewer, platform::gate::Ending ending);
    void sendAway(ViewerId viewer, Refusal refusal);
    void sendAway(const std::vector<std::pair<ViewerId, Refusal>>& leaving);
    void sendAway(ViewerId viewer, std::string_view reason, sealing::Farewell farewell);
    void setLink(const platform::gate::Link& link);
    void answer(const platform::gate::Reply& reply);
    /// Whether that one needs not be asked about.
    bool comesBack(ViewerId viewer);
    void admit(ViewerId viewer, platform::gate::Rights rights,
               const std::optional<Returns::Session>& session);
    void setRights(const platform::gate::SetRights& request);
    void disconnect(ViewerId viewer);
    void showQuestion(bool isShown);
    /// Tells of the question as it is, where it is another than the one told of.
    void tellQuestion(platform::gate::Ending endingOfLast);
    /// Tells those with the link's key where they stand.
    void tellStandings();
    void putOut(ViewerId viewer, platform::gate::Ending ending, sealing::Farewell farewell);
    void forget(ViewerId viewer, platform::gate::Ending ending, bool mayReturn = false);
    /// They were away, and do not come back as who they were.
    void tellGone(const std::vector<ViewerId>& away, platform::gate::Ending ending);
    void agree(Proof kind, Time time);
    void letGo(std::unique_ptr<Caller> caller);
    /// Of those who want to agree upon keys, in the one way or the other: who has shown the most,
    /// then who was heard once, never, or least often, then who came last; 0 where there is nobody.
    /// Who needs ever more turns waits for those who need few.
    ViewerId nextToAgree(Proof kind) const;

    platform::EventLoop& loop_;
    const platform::FileDescriptor listener_;
    const Handlers handlers_;
    const AnonymousTls tls_;
    /// Those with the key and those with TLS do not wait for each other.
    std::array<HandshakeBudget, 2> budgets_;
    std::shared_ptr<HeldLink> link_;
    std::optional<platform::gate::Link> heldLink_;
    Returns returns_;
    Doorkeeper doorkeeper_;
    ViewerId lastViewer_ = 0;
    /// Who was announced to come by a relay, the first ones first.
    std::list<platform::gate::Relayed> announced_;
    std::map<ViewerId, std::unique_ptr<Caller>> callers_;
    std::map<ViewerId, GuestEntry> guests_;
    /// May not be destroyed while they are being called; they are at the end of the turn.
    std::list<std::unique_ptr<Caller>> goneCallers_;
    std::list<std::unique_ptr<Guest>> goneGuests_;
    Departures departures_;
    std::optional<platform::gate::Question> told_;
    bool isQuestionShown_ = false;
    bool letsOnlyWatch_ = false;
    /// Connections that may be taken before the next moment.
    int accepts_;
    Time acceptsAgain_;
    platform::EventLoop::Watch watch_;
};

}  // namespace zelvo::server
