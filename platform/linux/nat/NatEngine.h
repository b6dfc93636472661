#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/nat/Leftovers.h"
#include "platform/linux/nat/PortPairMapping.h"
#include "platform/linux/nat/RouterAnnouncements.h"

namespace zelvo::platform {

/// All open requests, and what happens on the network around them. One thread.
class NatEngine {
  public:
    struct Options {
        Conversations::Options conversations;
        /// Where the journal lies; empty for none.
        std::string stateFolder;
    };

    /// All outlive this object.
    NatEngine(NatNetwork& network, const Routes& routes, Log& log, const Options& options);

    void open(int id, const PortWish& wish, PortPairMapping::Reply reply);
    void close(int id);
    /// The end: withdraws whatever may still be mapped, on other routers, too. Nothing is opened
    /// any more.
    void closeAll();

    /// To be called when the kernel's routes, this host's addresses or its links have changed.
    void routesChanged();
    /// To be called when the router may have forgotten meanwhile, as after a sleep.
    void checkAll();
    /// Does what is due. To be called after each turn of the loop.
    void advance();
    NatTime nextWake() const;
    /// Nothing is open or being withdrawn.
    bool isIdle() const;

  private:
    struct Waiting {
        int id;
        PortWish wish;
        NatTime asked;
        PortPairMapping::Reply reply;
    };

    void takeRoute(const std::optional<RouterRoute>& route);
    void listen();
    void startWaiting();
    bool mustWait(const PortWish& wish) const;

    NatNetwork& network_;
    Log& log_;
    Conversations conversations_;
    MappingJournal journal_;
    Leftovers leftovers_;
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
