#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/nat/PollLoop.h"
#include "platform/linux/nat/PortPairMapping.h"
#include "platform/linux/nat/RouteMonitor.h"
#include "platform/linux/nat/SocketNetwork.h"

namespace zelvo::platform {

struct NatEngineOptions {
    /// Nothing for the gateway of the default route.
    std::optional<Ipv4Endpoint> router;
    bool pcp = true;
    bool natPmp = true;
};

/// All open requests, and the network that they share. One thread.
class NatEngine {
  public:
    NatEngine(PollLoop& loop, Log& log, NatEngineOptions options);

    void open(int id, const PortWish& wish, PortPairMapping::Reply reply);
    void close(int id);
    void closeAll();

    /// Does what is due. To be called after each turn of the loop.
    void advance();
    NatTime nextWake() const;
    bool isIdle() const { return pairs_.empty() && closing_.empty() && waiting_.empty(); }

  private:
    struct Waiting {
        int id;
        PortWish wish;
        PortPairMapping::Reply reply;
    };

    std::vector<std::unique_ptr<RouterMapping>> makeMappings(const PortWish& wish);
    std::optional<RouterRoute> readRoute() const;
    void routesChanged();
    void startWaiting();
    bool isWithdrawing(std::uint16_t internalPort) const;

    PollLoop& loop_;
    Log& log_;
    NatEngineOptions options_;
    SocketNetwork network_;
    RouteMonitor monitor_;
    std::optional<RouterRoute> route_;
    bool routeLost_ = false;
    std::map<int, std::unique_ptr<PortPairMapping>> pairs_;
    std::vector<std::unique_ptr<PortPairMapping>> closing_;
    /// Requests for a port of which an older mapping is still being withdrawn.
    std::vector<Waiting> waiting_;
};

}  // namespace zelvo::platform
