#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "relay/RelayOptions.h"
#include "relay/tickets/Tickets.h"
#include "serving/Budgets.h"
#include "serving/Metrics.h"
#include "serving/TlsContext.h"

namespace zelvo::relay {

class RelayLoop;

/// What the loops of a relay have in common. Any thread, but for the loops, which do not change
/// once they run.
struct RelayShared {
    using Clock = std::chrono::steady_clock;

    RelayShared(RelayOptions itsOptions, std::vector<Ed25519> services, Ed25519 own,
                serving::Metrics& metrics);
    ~RelayShared();

    std::shared_ptr<const serving::TlsContext> tls() const {
        const std::lock_guard lock(tlsMutex);
        return currentTls;
    }
    void setTls(std::shared_ptr<const serving::TlsContext> tls) {
        const std::lock_guard lock(tlsMutex);
        currentTls = std::move(tls);
    }

    /// Everything about a number is done by one loop, and everything about a token.
    RelayLoop& loopOfNumber(int number) const { return *loops[number % loops.size()]; }
    /// Of what a token's first byte is.
    RelayLoop& loopOfToken(unsigned char first) const { return *loops[first % loops.size()]; }

    const RelayOptions options;
    const std::vector<Ed25519> serviceKeys;
    const Ed25519 leaseKey;
    const Clock::time_point begun = Clock::now();

    serving::Shares connectionsOf;
    serving::Shares hostsAt;
    serving::Shares hostsOf;
    serving::Allowances requestsOf;
    serving::Allowances bytesOf;
    serving::Allowances
        bytesAt;  ///< a host's address, since whoever shows no secret is a new owner
    std::atomic<std::size_t> connections = 0;
    std::atomic<std::size_t> hosts = 0;
    std::atomic<std::size_t> viewers = 0;

    serving::Metrics& metrics;
    serving::Metrics::Counter& accepted;
    serving::Metrics::Counter& crowdedOut;
    serving::Metrics::Counter& bytes;
    serving::Metrics::Counter& paired;
    serving::Metrics::Counter& notDialledBack;
    serving::Metrics::Counter& gaveWay;

    mutable std::mutex tlsMutex;
    std::shared_ptr<const serving::TlsContext> currentTls;
    std::vector<std::unique_ptr<RelayLoop>> loops;
};

}  // namespace zelvo::relay
