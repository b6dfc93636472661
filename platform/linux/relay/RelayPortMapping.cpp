#include "platform/linux/relay/RelayPortMapping.h"

#include <arpa/inet.h>

#include <QTimer>
#include <algorithm>
#include <random>
#include <utility>

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

/// Of the ten minutes that a ticket is good for. A relay that is away would have the service asked
/// for one at each try otherwise.
constexpr auto TicketIsFreshFor = 5min;
/// In units of the pauses between tries.
constexpr int AskAtMostEvery = 30;
/// A relay that has just started gives no new number before so long; then there is nothing to wait
/// for.
constexpr auto LongestWaitForNumber = 30s;

/// Loopback and link-local addresses (RFC 1122, section 3.2.1.3; RFC 3927). Host byte order.
bool staysHere(std::uint32_t address) {
    return address >> 24U == 127 || address >> 16U == 0xa9fe;
}

std::chrono::milliseconds between(std::chrono::milliseconds least, std::chrono::milliseconds most) {
    std::random_device random;
    return std::chrono::milliseconds(
        std::uniform_int_distribution<std::int64_t>(least.count(), most.count())(random));
}

}  // namespace

/// One request, from its begin to the end of its reference.
class RelayPortMapping::Attempt {
  public:
    Attempt(RelayPortMapping& mapping, const NatPortMappingRequest& request, Callback callback)
        : mapping_(mapping), request_(request), callback_(std::move(callback)) {}
    ~Attempt() {
        if (round_ != 0)
            mapping_.worker_.resign(round_);
    }

    std::int32_t begin(const std::shared_ptr<Attempt>& self) {
        self_ = self;
        const auto& options = mapping_.options_;
        const auto use = options.use();
        prefersRelay_ = use == RelayUse::Preferred;
        options.told({});
        const auto error = prefersRelay_ ? NatErrorNone : openAtRouter();
        if (error == NatErrorNone && use != RelayUse::Never)
            ask("");
        else
            offerIsKnown_ = true;
        return error;
    }
    std::int32_t setMainQueue() {
        after(mapping_.options_.patience, [this] {
            patienceIsOver_ = true;
            decide();
        });
        return router_ ? router_->setMainQueue() : NatErrorNone;
    }

    int round() const { return round_; }
    void registered(int number, const std::string& lease);
    void keepLease(const std::string& lease) { lease_ = lease; }
    void ended(std::chrono::seconds notBefore);

  private:
    enum class Way { Undecided, Asking, Router, Relay };

    void after(std::chrono::milliseconds time, std::function<void()> what) {
        QTimer::singleShot(time, &timers_, std::move(what));
    }
    void ask(const std::string& wanted) {
        mapping_.options_.ask(wanted, [weak = self_](const auto& offer) {
            if (const auto attempt = weak.lock())
                attempt->offered(offer);
        });
    }
    std::int32_t openAtRouter() {
        routerIsAsked_ = true;
        return mapping_.router_.create(router_, request_,
                                       [this](const auto& reply) { routerReplied(reply); });
    }
    void goToRouter();
    void offered(const std::optional<RelayOffer>& offer);
    void routerReplied(const NatPortMappingReply& reply);
    bool leadsHere() const;
    void decide();
    void enlist();
    void tryAgain(std::chrono::milliseconds notBefore);
    void answer(int number);

    RelayPortMapping& mapping_;
    const NatPortMappingRequest request_;
    /// Copied for each call, as it may end this request.
    const Callback callback_;
    std::weak_ptr<Attempt> self_;
    std::unique_ptr<NatPortMappingReference> router_;
    Way way_ = Way::Undecided;
    bool prefersRelay_ = false;
    bool routerIsAsked_ = false;
    /// The router's latest.
    std::optional<NatPortMappingReply> reply_;
    bool patienceIsOver_ = false;
    bool offerIsKnown_ = false;
    std::optional<RelayOffer> offer_;
    std::string lease_;
    int round_ = 0;
    /// What was answered.
    int number_ = 0;
    std::uint32_t address_ = 0;
    std::chrono::seconds waited_{0};
    bool hasTried_ = false;
    /// By the clock on the wall, which goes on while the computer sleeps.
    std::chrono::system_clock::time_point offeredAt_;
    /// For a ticket that is fresh again.
    std::chrono::steady_clock::time_point askedAt_;
    // What waits in it ends with it.
    QObject timers_;
};

void RelayPortMapping::Attempt::routerReplied(const NatPortMappingReply& reply) {
    reply_ = reply;
    if (way_ == Way::Router) {
        const auto callback = callback_;
        return callback(reply);
    }
    if (way_ == Way::Asking && !prefersRelay_ && leadsHere()) {
        mapping_.worker_.resign(round_);
        way_ = Way::Undecided;
    }
    decide();
}

bool RelayPortMapping::Attempt::leadsHere() const {
    const auto& isPrivate = mapping_.options_.isPrivate;
    const auto address = ntohl(reply_->externalAddress);
    const auto seen = offer_ ? ntohl(offer_->seenFrom) : 0;
    // A service in the same network sees no router at all.
    const bool routerWasSeen = seen != 0 && !staysHere(seen) && !isPrivate(seen);
    return reply_->externalPort != 0 && address != 0 && !isPrivate(address) &&
           (!routerWasSeen || seen == address);
}

void RelayPortMapping::Attempt::offered(const std::optional<RelayOffer>& offer) {
    if (way_ == Way::Router)
        return;
    if (way_ == Way::Relay) {
        // The link was made of the number at that relay, whose lease no other one knows. Without a
        // service the relay may be back all the same, and judges the old ticket.
        if (offer && offer->relay == offer_->relay) {
            offer_ = offer;
            offeredAt_ = std::chrono::system_clock::now();
        }
        return enlist();
    }
    offerIsKnown_ = true;
    offer_ = offer;
    offeredAt_ = std::chrono::system_clock::now();
    decide();
}

void RelayPortMapping::Attempt::decide() {
    if (way_ != Way::Undecided)
        return;
    if (prefersRelay_ && offer_) {
        way_ = Way::Asking;
        return enlist();
    }
    if (!offerIsKnown_ && !patienceIsOver_)
        return;
    if (!routerIsAsked_)
        return goToRouter();
    if (!reply_ && !patienceIsOver_)
        return;
    if (offer_ && !(reply_ && leadsHere())) {
        way_ = Way::Asking;
        return enlist();
    }
    // A service that is slow may still offer a relay where the router's way leads nowhere.
    if (!reply_ || (!offerIsKnown_ && !leadsHere()))
        return;
    way_ = Way::Router;
    const auto callback = callback_;
    callback(NatPortMappingReply(*reply_));
}

// The relay that was preferred is not to be had.
void RelayPortMapping::Attempt::goToRouter() {
    mapping_.options_.told({.isMissed = true});
    auto error = openAtRouter();
    if (error == NatErrorNone)
        error = router_->setMainQueue();
    if (error == NatErrorNone)
        return;
    NatPortMappingReply refusal;
    refusal.errorCode = error;
    after(0ms, [this, refusal] { routerReplied(refusal); });
}

void RelayPortMapping::Attempt::enlist() {
    round_ = ++mapping_.lastRound_;
    mapping_.worker_.enlist(round_, {offer_->relay, offer_->ticket, lease_});
}

void RelayPortMapping::Attempt::registered(int number, const std::string& lease) {
    if (way_ != Way::Asking && way_ != Way::Relay)
        return;
    const bool isFirst = std::exchange(way_, Way::Relay) == Way::Asking;
    if (isFirst) {
        number_ = number;
        address_ = offer_->address;
    }
    const bool isSame = number == number_ && offer_->address == address_;
    lease_ = lease;
    hasTried_ = false;
    router_.reset();
    mapping_.options_.told({offer_->relay, true, !isSame});
    if (isFirst)
        answer(number);
}

void RelayPortMapping::Attempt::answer(int number) {
    NatPortMappingReply reply;
    reply.externalAddress = offer_->address;
    reply.protocol = request_.protocol;
    reply.internalPort = request_.internalPort;
    reply.externalPort = htons(static_cast<std::uint16_t>(number));
    const auto callback = callback_;
    callback(reply);
}

void RelayPortMapping::Attempt::ended(std::chrono::seconds notBefore) {
    if (way_ == Way::Relay) {
        mapping_.options_.told({offer_->relay, false, false});
        return tryAgain(notBefore);
    }
    if (way_ != Way::Asking)
        return;
    waited_ += notBefore;
    if (notBefore > 0s && waited_ <= LongestWaitForNumber) {
        after(notBefore, [this] {
            if (way_ == Way::Asking)
                enlist();
        });
        return;
    }
    // What is left is what the router says, or will say.
    way_ = Way::Undecided;
    offer_.reset();
    decide();
}

void RelayPortMapping::Attempt::tryAgain(std::chrono::milliseconds notBefore) {
    // All of a relay's hosts lose it at one moment, and must not come at one moment again.
    const auto unit = mapping_.options_.pauseUnit;
    const auto pause =
        std::exchange(hasTried_, true) ? between(4 * unit, 8 * unit) : between(unit, 6 * unit);
    after(std::max(pause, notBefore), [this] {
        const auto age = std::chrono::system_clock::now() - offeredAt_;
        const auto now = std::chrono::steady_clock::now();
        // Where the service is away, too, or the relay for good, every host would ask for ever.
        const bool hasAsked = now - askedAt_ < AskAtMostEvery * mapping_.options_.pauseUnit;
        if ((age >= 0s && age < TicketIsFreshFor) || hasAsked)
            return enlist();
        askedAt_ = now;
        ask(offer_->relay);
    });
}

class RelayPortMapping::Reference final : public NatPortMappingReference {
  public:
    explicit Reference(std::shared_ptr<Attempt> attempt) : attempt_(std::move(attempt)) {}

    std::int32_t setMainQueue() override { return attempt_->setMainQueue(); }

  private:
    std::shared_ptr<Attempt> attempt_;
};

RelayPortMapping::RelayPortMapping(MainQueue& mainQueue, NatPortMapping& router, Options options)
    : mainQueue_(mainQueue),
      router_(router),
      options_(std::move(options)),
      self_(std::make_shared<RelayPortMapping*>(this)),
      worker_(options_.certificateFile, workersWords()) {}

RelayPortMapping::~RelayPortMapping() = default;

std::int32_t RelayPortMapping::create(std::unique_ptr<NatPortMappingReference>& reference,
                                      const NatPortMappingRequest& request, Callback callback) {
    reference.reset();
    const auto attempt = std::make_shared<Attempt>(*this, request, std::move(callback));
    attempt_ = attempt;
    const auto error = attempt->begin(attempt);
    if (error == NatErrorNone)
        reference = std::make_unique<Reference>(attempt);
    return error;
}

void RelayPortMapping::tell(int round, std::function<void(Attempt&)> what) {
    mainQueue_.async([weak = std::weak_ptr(self_), round, what = std::move(what)] {
        const auto self = weak.lock();
        const auto attempt = self ? (*self)->attempt_.lock() : nullptr;
        if (attempt && attempt->round() == round)
            what(*attempt);
    });
}

RelayHost::Told RelayPortMapping::workersWords() {
    return {.registered =
                [this](int round, int number, const std::string& lease) {
                    tell(round, [=](auto& attempt) { attempt.registered(number, lease); });
                },
            .lease =
                [this](int round, const std::string& lease) {
                    tell(round, [=](auto& attempt) { attempt.keepLease(lease); });
                },
            .ended =
                [this](int round, std::chrono::seconds notBefore) {
                    tell(round, [=](auto& attempt) { attempt.ended(notBefore); });
                },
            .arrived =
                [this](int viewer, const std::string& origin) {
                    mainQueue_.async([weak = std::weak_ptr(self_), viewer, origin] {
                        if (const auto self = weak.lock())
                            (*self)->worker_.join(viewer, (*self)->options_.connect(origin));
                    });
                }};
}

}  // namespace zelvo::platform
