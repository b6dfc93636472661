#include "relay/HostLine.h"

#include <array>
#include <ctime>
#include <utility>

#include "relay/RelayLoop.h"
#include "relay/RelayShared.h"
#include "relay/messages/RelayHeads.h"

namespace zelvo::relay {
namespace {

using Outcome = Connection::Outcome;

/// A host that lets more lie does not listen.
constexpr std::size_t LongestOutput = 8192;
constexpr int MostUnheard = 1;
constexpr Moment LeaseEvery = 12 * 3600;

}  // namespace

HostLine::HostLine(RelayLoop& loop, std::unique_ptr<Connection> connection, Host host)
    : Member(loop),
      connection_(std::move(connection)),
      host_(std::move(host)),
      client_(connection_->client().budgetKey()) {
    ++loop.shared().hosts;
}

void HostLine::begin() {
    connection_->attach(loop_.thread(), *this);
    startTimer(loop_.shared().options.pingTime);
    say(textOf(Reply{.status = 101, .number = host_.number, .lease = freshLease()}));
}

HostLine::~HostLine() {
    auto& shared = loop_.shared();
    --shared.hosts;
}

void HostLine::letGo() {
    connection_.reset();
    // At once, and not with its end, as the host may be back by then.
    loop_.shared().hostsOf.giveBack(host_.owner);
    loop_.shared().hostsAt.giveBack(client_);
    loop_.forget(host_.number, *this);
}

std::string HostLine::freshLease() {
    leaseMade_ = std::time(nullptr);
    return Lease{leaseMade_ + Lease::ValidFor, host_.name, host_.number}.sealed(
        loop_.shared().leaseKey);
}

void HostLine::say(const std::string& text) {
    if (!connection_)
        return;
    output_ += text;
    if (output_.size() > LongestOutput || !flush())
        return retire();
    connection_->waitFor(true, !output_.empty());
}

void HostLine::onReady(Connection& connection, bool canRead, bool canWrite) {
    if ((canWrite && !flush()) || (canRead && !listen()))
        return retire();
    connection.waitFor(true, !output_.empty());
}

bool HostLine::flush() {
    std::size_t sent = 0;
    while (!output_.empty()) {
        const auto outcome = connection_->write(output_, sent);
        if (outcome != Outcome::Done)
            return outcome == Outcome::Again;
        output_.erase(0, sent);
    }
    output_.shrink_to_fit();
    return true;
}

bool HostLine::listen() {
    std::array<char, Line::Longest> part;
    std::size_t got = 0;
    const auto outcome = connection_->read(part, got);
    if (outcome != Outcome::Done)
        return outcome == Outcome::Again;
    unheard_ = 0;
    return lines_.receive({part.data(), got},
                          [](const Line& line) { return line.kind == Line::Kind::Pong; });
}

void HostLine::onTime() {
    if (++unheard_ > MostUnheard)
        return retire();
    startTimer(loop_.shared().options.pingTime);
    auto& entry = *loop_.numbers().find(host_.number);
    if (std::time(nullptr) >= leaseMade_ + LeaseEvery) {
        say(textOf(Line{Line::Kind::Lease, freshLease()}));
        entry.leaseEnd = leaseMade_ + Lease::ValidFor;
    }
    say(textOf(Line{Line::Kind::Ping}));
}

}  // namespace zelvo::relay
