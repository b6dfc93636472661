#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/nat/Leftovers.h"
#include "platform/linux/nat/PortPairMapping.h"
#include "platform/linux/nat/RouteMonitor.h"
#include "platform/linux/nat/RouterAnnouncements.h"
#include "platform/linux/nat/SleepWatch.h"
#include "platform/linux/nat/base/PollLoop.h"
#include "platform/linux/nat/base/SocketNetwork.h"

namespace zelvo::platform {

/// All open requests, and what happens on the network around them. One thread.
class NatEngine {
  public:
    struct Options {
        Conversations::Options conversations;
        /// Where the journal lies; empty for none.
        std::string stateFolder;
    };

    NatEngine(PollLoop& loop, Log& log, const Options& options);

    void open(int id, const PortWish& wish, PortPairMapping::Reply reply);
    void close(int id);
    void closeAll();

    /// Does what is due. To be called after each turn of the loop.
    void advance();
    NatTime nextWake() const;
    /// No request is open or being withdrawn.
    bool isIdle() const { return pairs_.empty() && closing_.empty() && waiting_.empty(); }

  private:
    struct Waiting {
        int id;
        PortWish wish;
        NatTime asked;
        PortPairMapping::Reply reply;
    };

    void takeRoute(const std::optional<RouterRoute>& route);
    void listen();
    void routesChanged();
    void checkAll();
    void startWaiting();
    bool mustWait(const PortWish& wish) const;

    PollLoop& loop_;
    Log& log_;
    SocketNetwork network_;
    Conversations conversations_;
    MappingJournal journal_;
    Leftovers leftovers_;
    RouteMonitor monitor_;
    SleepWatch sleepWatch_;
    std::optional<RouterRoute> route_;
    bool routeLost_ = false;
    std::unique_ptr<RouterAnnouncements> announcements_;
    /// When the mappings are to be asked for again, because the router seems to have restarted.
    NatTime checkAt_ = Never;
    std::map<int, std::unique_ptr<PortPairMapping>> pairs_;
    std::vector<std::unique_ptr<PortPairMapping>> closing_;
    /// Requests for a port of which an older mapping is still being withdrawn.
    std::vector<Waiting> waiting_;
};

}  // namespace zelvo::platform
