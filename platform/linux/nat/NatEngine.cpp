#include "platform/linux/nat/NatEngine.h"

#include <algorithm>

#include "platform/linux/nat/NatPmpWire.h"
#include "platform/linux/nat/PcpWire.h"
#include "platform/linux/nat/PortControlMapping.h"

namespace zelvo::platform {

NatEngine::NatEngine(PollLoop& loop, Log& log, NatEngineOptions options)
    : loop_(loop),
      log_(log),
      options_(options),
      network_(loop),
      monitor_(loop, [this] { routesChanged(); }),
      route_(readRoute()) {}

void NatEngine::open(int id, const PortWish& wish, PortPairMapping::Reply reply) {
    waiting_.push_back({id, wish, std::move(reply)});
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
}

void NatEngine::advance() {
    for (const auto& pair : closing_) {
        pair->advance();
    }
    std::erase_if(closing_, [](const auto& pair) { return pair->isClosed(); });
    startWaiting();
    for (const auto& [id, pair] : pairs_) {
        pair->advance();
    }
}

NatTime NatEngine::nextWake() const {
    NatTime next = Never;
    for (const auto& pair : closing_) {
        next = std::min(next, pair->nextWake());
    }
    for (const auto& [id, pair] : pairs_) {
        next = std::min(next, pair->nextWake());
    }
    return next;
}

std::vector<std::unique_ptr<RouterMapping>> NatEngine::makeMappings(const PortWish& wish) {
    std::vector<std::unique_ptr<RouterMapping>> mappings;
    route_ = readRoute();
    if (!route_) {
        return mappings;
    }
    const Ipv4Endpoint server =
        options_.router.value_or(Ipv4Endpoint{route_->router, PortControlPort});
    if (options_.pcp) {
        mappings.push_back(std::make_unique<PortControlMapping>(
            network_, server, wish, [&wish](std::uint32_t localAddress) {
                return std::make_unique<PcpWire>(wish.internalPort, localAddress,
                                                 PcpWire::makeNonces());
            }));
    }
    if (options_.natPmp) {
        mappings.push_back(std::make_unique<PortControlMapping>(
            network_, server, wish,
            [&wish](std::uint32_t) { return std::make_unique<NatPmpWire>(wish.internalPort); }));
    }
    return mappings;
}

std::optional<RouterRoute> NatEngine::readRoute() const {
    return options_.router ? readRouteTo(options_.router->address) : readDefaultRoute();
}

void NatEngine::routesChanged() {
    const auto route = readRoute();
    if (!route) {
        // A cable that comes back finds the mapping where it was.
        routeLost_ = true;
        return;
    }
    const bool same = route == route_;
    if (same && !routeLost_) {
        return;
    }
    routeLost_ = false;
    route_ = route;
    for (const auto& [id, pair] : pairs_) {
        if (same) {
            pair->check();
        } else {
            pair->routerChanged();
        }
    }
}

void NatEngine::startWaiting() {
    for (std::size_t index = 0; index < waiting_.size();) {
        Waiting& waiting = waiting_[index];
        if (isWithdrawing(waiting.wish.internalPort)) {
            ++index;
            continue;
        }
        pairs_[waiting.id] = std::make_unique<PortPairMapping>(
            network_, log_, waiting.wish,
            [this](const PortWish& wish) { return makeMappings(wish); }, std::move(waiting.reply));
        waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

bool NatEngine::isWithdrawing(std::uint16_t internalPort) const {
    return std::any_of(closing_.begin(), closing_.end(), [internalPort](const auto& pair) {
        return pair->internalPort() == internalPort;
    });
}

}  // namespace zelvo::platform
