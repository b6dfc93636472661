#include "sealing/SealedLine.h"

#include <utility>

namespace zelvo::sealing {

namespace {

SealedLine::Failure lineFailureOf(SealedChannel::Failure failure) {
    switch (failure) {
        case SealedChannel::Failure::KeyRefused:
            return SealedLine::Failure::KeyRefused;
        case SealedChannel::Failure::Replayed:
            return SealedLine::Failure::Replayed;
        case SealedChannel::Failure::NotTheHost:
            return SealedLine::Failure::NotTheHost;
        case SealedChannel::Failure::BadOpening:
            return SealedLine::Failure::BadOpening;
        case SealedChannel::Failure::BadRecord:
            return SealedLine::Failure::BadRecord;
        case SealedChannel::Failure::None:
            break;
    }
    return SealedLine::Failure::None;
}

/// One word for a wrong key and for a replay: who recorded a first message is not to learn from it
/// whether the link still holds.
CloseCode closeCodeOf(SealedChannel::Failure failure) {
    return failure == SealedChannel::Failure::KeyRefused ||
                   failure == SealedChannel::Failure::Replayed
               ? CloseCode::KeyRefused
               : CloseCode::Broken;
}

}  // namespace

SealedLine SealedLine::host(const ChannelKey& key, ReplayCache& replays) {
    return {std::make_unique<UpgradeRequestReader>(), WebSocket::Role::Server,
            SealedChannel::host(key, replays, OwnSecrets::fresh())};
}

SealedLine SealedLine::opener(const ChannelKey& key, std::string_view name,
                              const std::optional<ReturnSecret>& comesBackBy,
                              const RelayedHost* relayed) {
    return {std::make_unique<UpgradeReplyReader>(UpgradeReplyReader::freshNonce(), relayed),
            WebSocket::Role::Client,
            SealedChannel::opener(key, name, OwnSecrets::fresh(), comesBackBy)};
}

SealedLine::State SealedLine::state() const {
    if (failure_ != Failure::None)
        return State::Failed;
    switch (channel_.state()) {
        case SealedChannel::State::Proving:
            return State::Proving;
        case SealedChannel::State::Open:
            return State::Open;
        case SealedChannel::State::Closed:
            return State::Closed;
        case SealedChannel::State::Failed:
            break;
    }
    return State::Failed;
}

SealedLine::Failure SealedLine::failure() const {
    return failure_ != Failure::None ? failure_ : lineFailureOf(channel_.failure());
}

void SealedLine::receive(std::string_view bytes) {
    if (failure_ != Failure::None)
        return;
    if (head_) {
        head_->receive(bytes);
        output_ += head_->takeOutput();
        if (head_->state() == WebSocketHead::State::Failed)
            return fail(head_->isBusy() ? Failure::Busy : Failure::NoUpgrade);
        if (head_->state() == WebSocketHead::State::Reading)
            return;
        head_.reset();
        sendMessages();
    }
    socket_.receive(bytes);
    readMessages();
}

void SealedLine::readMessages() {
    while (true) {
        socket_.setLongest(channel_.longestMessage());
        const auto message = socket_.next();
        if (!message)
            break;
        channel_.receive(*message);
        sendMessages();
    }
    if (socket_.state() == WebSocket::State::Failed)
        fail(Failure::BadFrames);
    else if (socket_.state() == WebSocket::State::Closed)
        end();
}

void SealedLine::sendMessages() {
    for (const auto& message : channel_.takeMessages())
        socket_.send(message);
    if (channel_.state() == SealedChannel::State::Closed)
        socket_.close(CloseCode::Normal);
    else if (channel_.state() == SealedChannel::State::Failed)
        socket_.close(closeCodeOf(channel_.failure()));
}

void SealedLine::end() {
    const auto now = state();
    if (now != State::Proving && now != State::Open)
        return;
    const bool isRefused = now == State::Proving &&
                           socket_.peersCode() == static_cast<std::uint16_t>(CloseCode::KeyRefused);
    fail(isRefused ? Failure::KeyRefused : Failure::Cut);
}

void SealedLine::fail(Failure failure) {
    // What was sealed already, and how it ended, counts more than how its wire ends.
    if (state() == State::Proving || state() == State::Open)
        failure_ = failure;
}

std::string SealedLine::takeOutput() {
    auto more = head_ ? head_->takeOutput() : socket_.takeOutput();
    if (output_.empty())
        return more;
    output_ += more;
    return std::exchange(output_, {});
}

bool SealedLine::isOver() const {
    return state() == State::Failed || socket_.state() == WebSocket::State::Closed ||
           socket_.state() == WebSocket::State::Failed;
}

void SealedLine::send(std::string_view bytes) {
    channel_.send(bytes);
    sendMessages();
}

void SealedLine::tell(const Standing& standing) {
    channel_.tell(standing);
    sendMessages();
}

void SealedLine::giveReturnSecret(const ReturnSecret& secret) {
    channel_.giveReturnSecret(secret);
    sendMessages();
}

void SealedLine::confirmReturn(const ReturnSecret& secret) {
    channel_.confirmReturn(secret);
    sendMessages();
}

void SealedLine::sayGoodbye(Farewell reason) {
    channel_.sayGoodbye(reason);
    sendMessages();
}

}  // namespace zelvo::sealing
