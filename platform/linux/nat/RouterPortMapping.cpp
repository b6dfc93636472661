#include "platform/linux/nat/RouterPortMapping.h"

#include <arpa/inet.h>

#include <optional>
#include <random>

#include "platform/linux/nat/NatWorker.h"
#include "platform/linux/nat/codec/PortControl.h"

namespace zelvo::platform {

namespace {

constexpr std::uint32_t LongestLease = 3600;
/// Where no external port is wished for: above the well-known ones.
constexpr std::uint16_t LowestRandomPort = 10000;
constexpr std::uint16_t HighestRandomPort = 65533;

std::uint16_t randomPort() {
    std::random_device device;
    return std::uniform_int_distribution<std::uint16_t>(LowestRandomPort,
                                                        HighestRandomPort)(device);
}

/// What the main thread knows of a request. The jobs that bring replies hold it weakly.
struct RequestState {
    NatPortMapping::Callback callback;
    bool delivers = false;
    /// The latest reply that nobody could be told yet.
    std::optional<NatPortMappingReply> held;

    void take(const NatPortMappingReply& reply) {
        if (!delivers) {
            held = reply;
            return;
        }
        // The callback may destroy the reference, and this object with it.
        const auto keep = callback;
        keep(reply);
    }
};

class RouterReference final : public NatPortMappingReference {
  public:
    RouterReference(MainQueue& mainQueue, std::shared_ptr<RequestState> state,
                    std::weak_ptr<NatWorker> worker, int id)
        : mainQueue_(mainQueue), state_(std::move(state)), worker_(std::move(worker)), id_(id) {}

    ~RouterReference() override {
        if (const auto worker = worker_.lock()) {
            worker->close(id_);
        }
    }

    std::int32_t setMainQueue() override {
        state_->delivers = true;
        if (state_->held) {
            mainQueue_.async([weak = std::weak_ptr(state_)] {
                const auto state = weak.lock();
                if (state && state->held) {
                    state->take(*std::exchange(state->held, std::nullopt));
                }
            });
        }
        return NatErrorNone;
    }

  private:
    MainQueue& mainQueue_;
    std::shared_ptr<RequestState> state_;
    std::weak_ptr<NatWorker> worker_;
    int id_;
};

}  // namespace

RouterPortMapping::RouterPortMapping(MainQueue& mainQueue, Log& log, Options options)
    : mainQueue_(mainQueue),
      routerIsValid_(true),
      heard_(options.heard ? std::move(options.heard) : [](const auto&) {}) {
    NatEngine::Options engine;
    engine.stateFolder = options.stateFolder;
    engine.conversations.pcp = options.pcp;
    engine.conversations.natPmp = options.natPmp;
    engine.conversations.upnp = options.upnp;
    if (!options.router.empty()) {
        engine.conversations.router = parseEndpoint(options.router);
        routerIsValid_ = engine.conversations.router.has_value();
    }
    if (!routerIsValid_) {
        log.line("Port mapping: \"" + options.router + "\" is no router; expected is an IPv4 " +
                 "address, or address:port");
        return;
    }
    worker_ = std::make_shared<NatWorker>(log, engine);
}

RouterPortMapping::~RouterPortMapping() = default;

std::int32_t RouterPortMapping::create(std::unique_ptr<NatPortMappingReference>& reference,
                                       const NatPortMappingRequest& request, Callback callback) {
    reference.reset();
    constexpr std::uint32_t Known = NatProtocolTcp | NatProtocolUdp;
    if (!callback || request.internalPort == 0 || request.flags != 0 ||
        request.interfaceIndex != 0 || (request.protocol & Known) == 0 ||
        (request.protocol & ~Known) != 0) {
        return NatErrorBadParam;
    }
    if (!routerIsValid_) {
        return NatErrorNoRouter;
    }
    if (!worker_->isRunning()) {
        return NatErrorNotRunning;
    }
    PortWish wish;
    wish.internalPort = ntohs(request.internalPort);
    wish.externalPort = request.externalPort != 0 ? ntohs(request.externalPort) : randomPort();
    wish.tcp = request.protocol & NatProtocolTcp;
    wish.udp = request.protocol & NatProtocolUdp;
    wish.lifetime =
        std::chrono::seconds(request.ttl == 0 ? LongestLease : std::min(request.ttl, LongestLease));

    const auto state = std::make_shared<RequestState>();
    state->callback = [heard = heard_, callback = std::move(callback)](const auto& reply) {
        heard(reply);
        callback(reply);
    };
    heard_(std::nullopt);
    const int id = nextId_++;
    worker_->open(
        id, wish,
        [&queue = mainQueue_, weak = std::weak_ptr(state)](const NatPortMappingReply& reply) {
            queue.async([weak, reply] {
                if (const auto state = weak.lock()) {
                    state->take(reply);
                }
            });
        });
    reference = std::make_unique<RouterReference>(mainQueue_, state, worker_, id);
    return NatErrorNone;
}

}  // namespace zelvo::platform
