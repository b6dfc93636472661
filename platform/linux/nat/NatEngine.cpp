#include "platform/linux/nat/NatEngine.h"

#include <algorithm>

#include "platform/linux/base/Debug.h"

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// A router that has just announced itself may still be busy starting, and says it several times.
constexpr auto RestartPause = 1s;

}  // namespace

NatEngine::NatEngine(NatNetwork& network, const Routes& routes, Log& log, const Options& options)
    : network_(network),
      log_(log),
      conversations_(network, routes, options.conversations),
      journal_(options.stateFolder, log),
      leftovers_(conversations_, journal_, log) {
    takeRoute(conversations_.readRoute());
}

void NatEngine::open(int id, const PortWish& wish, PortPairMapping::Reply reply) {
    waiting_.push_back({id, wish, network_.now(), std::move(reply)});
}

void NatEngine::close(int id) {
    std::erase_if(waiting_, [id](const Waiting& waiting) { return waiting.id == id; });
    const auto pair = pairs_.find(id);
    if (pair != pairs_.end()) {
        pair->second->close();
        closing_.push_back(std::move(pair->second));
        pairs_.erase(pair);
    }
}

void NatEngine::closeAll() {
    waiting_.clear();
    while (!pairs_.empty()) {
        close(pairs_.begin()->first);
    }
    leftovers_.beginAll();
}

bool NatEngine::isIdle() const {
    return pairs_.empty() && closing_.empty() && waiting_.empty() && leftovers_.isIdle();
}

void NatEngine::advance() {
    const NatTime now = network_.now();
    if (checkAt_ <= now) {
        checkAt_ = Never;
        checkAll();
    }
    if (leftovers_.advance(now)) {
        // What it withdrew may have been ours by now, where the route has changed meanwhile.
        checkAll();
    }
    for (const auto& pair : closing_) {
        pair->advance();
    }
    std::erase_if(closing_, [](const auto& pair) { return pair->isClosed(); });
    startWaiting();
    listen();
    for (const auto& [id, pair] : pairs_) {
        pair->advance();
    }
}

NatTime NatEngine::nextWake() const {
    NatTime next = std::min(checkAt_, leftovers_.nextWake());
    for (const auto& pair : closing_) {
        next = std::min(next, pair->nextWake());
    }
    for (const auto& [id, pair] : pairs_) {
        next = std::min(next, pair->nextWake());
    }
    return next;
}

void NatEngine::takeRoute(const std::optional<RouterRoute>& route) {
    route_ = route;
    debug("nat", route_ ? "the router is " + addressText(route_->router) + ", seen from " +
                              addressText(route_->localAddress)
                        : "there is no route");
    announcements_.reset();
    if (route_) {
        leftovers_.begin();
    }
}

/// Nobody joins a group for nothing.
void NatEngine::listen() {
    if (pairs_.empty()) {
        announcements_.reset();
    } else if (!announcements_ && route_ && conversations_.isOnNetwork()) {
        announcements_ = std::make_unique<RouterAnnouncements>(
            network_, route_->router, route_->localAddress,
            [this](ByteView datagram) {
                for (const auto& [id, pair] : pairs_) {
                    pair->announced(datagram);
                }
            },
            [this] { checkAt_ = std::min(checkAt_, network_.now() + RestartPause); });
    }
}

void NatEngine::routesChanged() {
    const auto route = conversations_.readRoute();
    if (!route) {
        // A cable that comes back finds the mapping where it was.
        routeLost_ = true;
        return;
    }
    if (route != route_) {
        takeRoute(route);
        for (const auto& [id, pair] : pairs_) {
            pair->routerChanged();
        }
    } else if (routeLost_) {
        checkAll();
    }
    routeLost_ = false;
}

void NatEngine::checkAll() {
    for (const auto& [id, pair] : pairs_) {
        pair->check();
    }
}

void NatEngine::startWaiting() {
    for (std::size_t index = 0; index < waiting_.size();) {
        Waiting& waiting = waiting_[index];
        if (mustWait(waiting.wish)) {
            ++index;
            continue;
        }
        pairs_[waiting.id] = std::make_unique<PortPairMapping>(
            network_, log_, journal_, waiting.wish, waiting.asked,
            [this](const PortWish& wish) {
                if (!route_ || routeLost_) {
                    // The kernel's notices may have been lost.
                    routesChanged();
                }
                return route_ && !routeLost_
                           ? conversations_.make(*route_, wish, journal_.records())
                           : std::vector<std::unique_ptr<RouterMapping>>();
            },
            std::move(waiting.reply));
        waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

bool NatEngine::mustWait(const PortWish& wish) const {
    return leftovers_.mayTake(wish) ||
           std::any_of(closing_.begin(), closing_.end(), [&wish](const auto& pair) {
               return pair->wish().internalPort == wish.internalPort;
           });
}

}  // namespace zelvo::platform
