#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/relay/RelayTalk.h"
#include "platform/linux/tls/TlsBridge.h"
#include "platform/linux/tls/TlsDialer.h"
#include "relay/messages/RelayHeads.h"
#include "relay/messages/RelayLines.h"

namespace zelvo::platform {

/// This host at a relay: one registration, and a connection for each viewer. One thread.
class RelayHost {
  public:
    using Time = EventLoop::Clock::time_point;

    struct Place {
        /// "name" or "name:port".
        std::string relay;
        std::string ticket;
        /// Empty without one.
        std::string lease;
    };
    /// `round` is that of the registration.
    struct Told {
        /// Viewers can come in by that number; the next registration is to have the lease.
        std::function<void(int round, int number, const std::string& lease)> registered;
        std::function<void(int round, const std::string& lease)> lease;
        /// Not registered, or not any more. Not to be tried again before so long.
        std::function<void(int round, std::chrono::seconds notBefore)> ended;
        /// Somebody is there, and the relay saw them come from that address. Waits for `join`.
        std::function<void(int viewer, const std::string& origin)> arrived;
    };

    RelayHost(EventLoop& loop, const std::string& certificateFile, Told told);

    /// Ends the registration before.
    void enlist(int round, Place place);
    /// Who is connected stays; who was only announced, then or before, is left at the relay.
    void resign(int round);
    void leave() { registration_.reset(); }
    /// The viewer's bytes go to that socket, and its to them; without one the viewer goes.
    void join(int viewer, FileDescriptor socket);
    bool hasViewers() const { return !callers_.empty(); }

    Time nextDeadline() const;
    /// To be called after each turn of the loop.
    void tick(Time now);

  private:
    struct Registration {
        int round = 0;
        Place place;
        Time until;
        bool isIn = false;
        std::string head;
        relay::LineReader lines;
        std::unique_ptr<RelayTalk> talk;
    };
    /// Somebody who comes through the relay, whom we come for.
    struct Caller {
        /// Of the registration that announced them.
        int round = 0;
        std::string origin;
        /// Of what goes before `bridge`.
        Time until;
        std::string head;
        std::unique_ptr<RelayTalk> talk;
        std::unique_ptr<TlsBridge> bridge;
        bool isOver = false;
    };

    void registrationBegins(int round, TlsDialer::Outcome outcome);
    bool hearRelay(std::string_view bytes);
    bool hearReply();
    bool hearLine(const relay::Line& line);
    void endRegistration(std::chrono::seconds notBefore);
    void comeFor(const std::string& token, const std::string& origin);
    bool hearCaller(int viewer, std::string_view bytes);

    EventLoop& loop_;
    const Told told_;
    TlsDialer dialer_;
    std::unique_ptr<Registration> registration_;
    /// What `tick` does, as it cannot be done from within.
    std::optional<std::chrono::seconds> endsRegistration_;
    int lastCaller_ = 0;
    std::map<int, Caller> callers_;
};

}  // namespace zelvo::platform
