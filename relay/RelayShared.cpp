#include "relay/RelayShared.h"

#include <utility>

#include "relay/RelayLoop.h"

namespace zelvo::relay {

RelayShared::RelayShared(RelayOptions itsOptions, std::vector<Ed25519> services, Ed25519 own,
                         serving::Metrics& itsMetrics)
    : options(std::move(itsOptions)),
      serviceKeys(std::move(services)),
      leaseKey(std::move(own)),
      connectionsOf(options.connectionsPerClient),
      hostsAt(options.hostsPerClient),
      hostsOf(options.hostsPerOwner),
      requestsOf(options.requestsPerClient),
      bytesOf(options.bytesPerOwner),
      bytesAt(options.bytesPerClient),
      metrics(itsMetrics),
      accepted(metrics.counter("zelvo_connections_total", "Connections that were accepted.")),
      crowdedOut(metrics.counter("zelvo_connections_refused_total",
                                 "Connections of clients that had their share already.")),
      bytes(metrics.counter("zelvo_relay_bytes_total", "Bytes that were forwarded.")),
      paired(metrics.counter("zelvo_relay_pairings_total", "Viewers whose host dialled back.")),
      notDialledBack(metrics.counter("zelvo_relay_pairings_failed_total",
                                     "Viewers whose host did not dial back in time.")),
      gaveWay(metrics.counter("zelvo_relay_displaced_total",
                              "Viewers without an answer whose place another one took.")) {
    metrics.gauge("zelvo_connections", "Connections that are open.",
                  [this] { return static_cast<double>(connections); });
    metrics.gauge("zelvo_relay_hosts", "Hosts that can be reached.",
                  [this] { return static_cast<double>(hosts); });
    metrics.gauge("zelvo_relay_viewers", "Viewers that are connected, or wait for a host.",
                  [this] { return static_cast<double>(viewers); });
}

RelayShared::~RelayShared() = default;

}  // namespace zelvo::relay
