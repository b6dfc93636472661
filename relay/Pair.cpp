#include "relay/Pair.h"

#include <event2/event.h>

#include <algorithm>
#include <array>
#include <utility>

#include "relay/Arrival.h"
#include "relay/RelayLoop.h"
#include "relay/RelayShared.h"

namespace zelvo::relay {
namespace {

using Outcome = Connection::Outcome;

/// A record of TLS.
constexpr std::size_t PartLength = 16384;
/// In one turn from one side, so that the others get theirs.
constexpr int PartsAtOnce = 4;
/// After how many bytes the budgets, which all loops share, are asked.
constexpr std::uint64_t ChargeEvery = 1 << 20;
/// For a host to answer a viewer's first message. Short, as strangers can hold places for so long.
constexpr std::chrono::seconds AnswerTime{1};

/// A ping, its answer and a close frame (RFC 6455, section 5.5) are to be had without the key.
bool isControlFrame(char first) {
    return (static_cast<unsigned char>(first) & 0x0fU) >= 8;
}

}  // namespace

Pair::Pair(RelayLoop& loop, std::unique_ptr<Connection> viewer, const ViewerRequest& request,
           const std::string& rest, std::string token, std::shared_ptr<HostAccount> account)
    : Member(loop),
      token_(std::move(token)),
      client_(viewer->client().budgetKey()),
      account_(std::move(account)) {
    viewer_.connection = std::move(viewer);
    host_.unsent = textOf(Reply{.status = 101}) + textForHost(request) + rest;
    if (!rest.empty())
        spoke_ = HostAccount::Clock::now();
    account_->viewers.push_back(this);
    ++loop.shared().viewers;
    event_assign(
        &resume_, loop.thread().base(), -1, EV_TIMEOUT,
        [](int, short, void* self) {
            auto& pair = *static_cast<Pair*>(self);
            pair.rests_ = false;
            pair.goOn();
        },
        this);
}

Pair::~Pair() {
    event_del(&resume_);
}

void Pair::begin() {
    viewer_.connection->attach(loop_.thread(), *this);
    startTimer(loop_.shared().options.pairingTime);
}

void Pair::letGo() {
    event_del(&resume_);
    if (!host_.connection)
        loop_.forgetWaiting(token_);
    viewer_.connection.reset();
    host_.connection.reset();
    std::erase(account_->viewers, this);
    account_->viewersOf.giveBack(client_);
    --loop_.shared().viewers;
}

void Pair::join(std::unique_ptr<Connection> host, const std::string& rest) {
    loop_.forgetWaiting(token_);
    ++loop_.shared().paired;
    host_.connection = std::move(host);
    host_.connection->attach(loop_.thread(), *this);
    viewer_.unsent = rest;
    viewer_.connection->beginCarrying();
    host_.connection->beginCarrying();
    stopTimer();
    startTimer(std::chrono::hours(loop_.shared().options.hours));
    // What the session has read already, no event tells of.
    if (pump(viewer_, host_) && pump(host_, viewer_))
        goOn();
}

void Pair::onTime() {
    if (!host_.connection)
        ++loop_.shared().notDialledBack;
    retire();
}

Pair::Hold Pair::hold() const {
    if (isAnswered_)
        return Hold::Firm;
    if (!spoke_)
        return Hold::Silent;
    return HostAccount::Clock::now() - *spoke_ < AnswerTime ? Hold::Firm : Hold::Unanswered;
}

void Pair::giveWay() {
    ++loop_.shared().gaveWay;
    auto viewer = host_.connection ? nullptr : std::move(viewer_.connection);
    auto& loop = loop_;
    retire();
    if (viewer)
        loop.refuse(std::move(viewer), 429);
}

// The host's first words answer the request, which anybody can make.
void Pair::note(const Side& from, std::string_view bytes) {
    if (&from == &viewer_) {
        if (!spoke_)
            spoke_ = HostAccount::Clock::now();
    } else if (std::exchange(hostHasGreeted_, true) && spoke_ && !isControlFrame(bytes.front())) {
        isAnswered_ = true;
    }
}

void Pair::onReady(Connection& connection, bool canRead, bool canWrite) {
    auto& ready = &connection == viewer_.connection.get() ? viewer_ : host_;
    auto& other = &ready == &viewer_ ? host_ : viewer_;
    // Who takes something again has the other one's words first.
    if (canWrite && !pump(other, ready))
        return;
    if (canRead && !pump(ready, other))
        return;
    goOn();
}

/// Waits for what each side can do next.
void Pair::goOn() {
    viewer_.connection->waitFor(canPump(viewer_, host_), !viewer_.unsent.empty());
    host_.connection->waitFor(canPump(host_, viewer_), !host_.unsent.empty());
}

bool Pair::canPump(const Side& from, const Side& to) const {
    return !rests_ && !from.hasEnded && to.unsent.empty() && !to.isDeaf;
}

void Pair::flush(Side& side) {
    std::size_t sent = 0;
    while (!side.unsent.empty() && !side.isDeaf) {
        const auto outcome = side.connection->write(side.unsent, sent);
        if (outcome == Outcome::Again)
            return;
        side.isDeaf = outcome == Outcome::Ended;
        side.unsent.erase(0, sent);
    }
    // An idle pair keeps nothing.
    std::string().swap(side.unsent);
}

bool Pair::pump(Side& from, Side& to) {
    thread_local std::array<char, PartLength> part;
    flush(to);
    bool isHeldBack = false;
    for (int i = 0; i < PartsAtOnce && canPump(from, to); ++i) {
        std::size_t got = 0;
        const auto outcome = from.connection->read(part, got);
        if (outcome == Outcome::Again)
            break;
        if (outcome == Outcome::Ended) {
            from.hasEnded = true;
            break;
        }
        if (!isAnswered_)
            note(from, {part.data(), got});
        if (got == part.size() && !std::exchange(isHeldBack, true))
            to.connection->holdBack(true);
        std::size_t sent = 0;
        if (to.connection->write({part.data(), got}, sent) == Outcome::Ended) {
            to.isDeaf = true;
            break;
        }
        if (sent < got)
            to.unsent.assign(part.data() + sent, got - sent);
        if (!charge(got))
            return false;
    }
    if (isHeldBack)
        to.connection->holdBack(false);
    if (from.isDeaf && to.isDeaf) {
        retire();
        return false;
    }
    if (!from.hasEnded || !to.unsent.empty())
        return true;
    // What is still on its way to the other side's peer is to arrive.
    auto left = std::move(to.connection);
    auto& loop = loop_;
    retire();
    left->detach();
    loop.add(std::make_unique<Leaver>(loop, std::move(left), ""));
    return false;
}

bool Pair::charge(std::size_t bytes) {
    loop_.shared().bytes += bytes;
    account_->uncharged += bytes;
    if (account_->uncharged >= ChargeEvery) {
        const auto cost = static_cast<double>(std::exchange(account_->uncharged, 0));
        const auto now = HostAccount::Clock::now();
        auto& shared = loop_.shared();
        if (!shared.bytesOf.take(account_->owner, now, cost) ||
            !shared.bytesAt.take(account_->client, now, cost)) {
            retire();
            return false;
        }
    }
    if (const auto pause = account_->take(bytes); pause.count() > 0) {
        const timeval after{pause.count() / 1000, pause.count() % 1000 * 1000};
        rests_ = true;
        event_add(&resume_, &after);
    }
    return true;
}

}  // namespace zelvo::relay
