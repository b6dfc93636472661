#include "relay/Arrival.h"

#include <array>
#include <utility>

#include "relay/RelayLoop.h"
#include "relay/RelayShared.h"
#include "relay/messages/RelayHeads.h"

namespace zelvo::relay {
namespace {

using namespace std::chrono_literals;
using Outcome = Connection::Outcome;

/// For the last words to arrive: who hangs up on somebody who still talks, takes them back.
constexpr auto LeavingTime = 2000ms;

}  // namespace

Arrival::Arrival(RelayLoop& loop, std::unique_ptr<Connection> connection)
    : Member(loop), connection_(std::move(connection)) {}

void Arrival::begin() {
    connection_->attach(loop_.thread(), *this);
    connection_->waitFor(true, false);
    startTimer(loop_.shared().options.headTime);
}

void Arrival::onTime() {
    retire();
}

void Arrival::onReady(Connection& connection, bool, bool) {
    if (!isSecure_) {
        const auto outcome = connection.handshake();
        if (outcome == Outcome::Ended)
            return retire();
        isSecure_ = outcome == Outcome::Done;
    }
    if (isSecure_ && !readHead())
        return;
    connection.waitFor(true, false);
}

/// False when there is nothing more to wait for.
bool Arrival::readHead() {
    for (;;) {
        std::array<char, LongestHead> part;
        std::size_t got = 0;
        const auto outcome =
            connection_->read(std::span(part).first(LongestHead - input_.size()), got);
        if (outcome == Outcome::Again)
            return true;
        if (outcome == Outcome::Ended) {
            retire();
            return false;
        }
        input_.append(part.data(), got);
        const auto length = headLength(input_);
        if (length == 0)
            continue;
        if (length != input_.npos) {
            connection_->detach();
            loop_.hear(readRequest(std::string_view(input_).substr(0, length)),
                       std::move(connection_), input_.substr(length));
        }
        retire();
        return false;
    }
}

Leaver::Leaver(RelayLoop& loop, std::unique_ptr<Connection> connection, std::string lastWords)
    : Member(loop), connection_(std::move(connection)), lastWords_(std::move(lastWords)) {}

void Leaver::begin() {
    connection_->attach(loop_.thread(), *this);
    startTimer(LeavingTime);
    goOn();
}

void Leaver::onReady(Connection&, bool, bool) {
    goOn();
}

void Leaver::goOn() {
    std::size_t sent = 0;
    while (!lastWords_.empty()) {
        const auto outcome = connection_->write(lastWords_, sent);
        if (outcome == Outcome::Ended)
            return retire();
        if (outcome == Outcome::Again)
            return connection_->waitFor(false, true);
        lastWords_.erase(0, sent);
    }
    if (!std::exchange(hasSaidEnd_, true))
        connection_->sayEnd();
    std::array<char, LongestHead> part;
    std::size_t got = 0;
    // No more than one at a time: who talks on gets no turn of anybody else's.
    if (connection_->read(part, got) == Outcome::Ended)
        return retire();
    connection_->waitFor(true, false);
}

}  // namespace zelvo::relay
