#include "server/gate/Caller.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <utility>

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;

/// So long an opener's first word may take; a viewer waits so much longer for the greeting.
constexpr auto timeForFirstWords = 100ms;
constexpr int firstWordsOfAnOpener = 4;
/// What is read of an opener at once: all of a handshake's step.
constexpr std::size_t openersPart = 4096;

/// How many bytes have to be there before we are woken for them.
void wakeFor(int socket, int bytes) {
    ::setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof bytes);
}

}  // namespace

Caller::Caller(platform::EventLoop& loop, const AnonymousTls& tls, platform::FileDescriptor socket,
               const platform::gate::Peer& peer, std::string origin, Handlers handlers)
    : tls_(tls),
      peer_(peer),
      origin_(std::move(origin)),
      handlers_(std::move(handlers)),
      stream_(std::move(socket)),
      greetsAt_(origin_.empty() ? platform::EventLoop::Clock::now() + timeForFirstWords
                                : Time::max()),
      watch_(loop, stream_.descriptor(), [this](std::uint32_t events) {
          // Released in the turn that this event came in.
          if (stream_.descriptor() < 0)
              return;
          if (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR))
              return handlers_.gone();
          proceed();
      }) {
    // Whoever says them one by one is heard once.
    wakeFor(stream_.descriptor(), firstWordsOfAnOpener);
    watch();
}

void Caller::greet() {
    greetsAt_ = Time::max();
    // A failure shows at the next event.
    stream_.write(handshake_.takeOutput());
    watch();
}

const sealing::SealedChannel* Caller::proof() const {
    const auto* line = stream_.line();
    return line && line->state() == sealing::SealedLine::State::Open ? &line->channel() : nullptr;
}

bool Caller::knowsAnswer() const {
    return isSealed() && !told_ && stream_.line()->channel().hasAnswered() && !proof();
}

void Caller::proceed() {
    if (kind_ == Kind::Sealed) {
        wantsToAgree_ = true;
        return watch();
    }
    if (!talk() || handshake_.state() == RfbHandshake::State::Failed)
        return handlers_.gone();
    watch();
    if (handshake_.state() == RfbHandshake::State::Done)
        handlers_.ready();
}

bool Caller::talk() {
    if (stream_.flush() == ViewerStream::Result::Closed)
        return false;
    if (kind_ == Kind::Unknown && !hearFirstWords())
        return false;
    return kind_ != Kind::Plain || hearRfb();
}

bool Caller::hearFirstWords() {
    const auto missing = firstWordsOfAnOpener - firstWords_.size();
    if (stream_.read(firstWords_, missing) == ViewerStream::Result::Closed)
        return false;
    const bool isWhole = firstWords_.size() == firstWordsOfAnOpener;
    if (sealing::mayAskForUpgrade(firstWords_) && !isWhole)
        return true;
    wakeFor(stream_.descriptor(), 1);
    if (sealing::mayAskForUpgrade(firstWords_)) {
        kind_ = Kind::Sealed;
        greetsAt_ = Time::max();
        stream_.beginSealed(handlers_.link(), firstWords_);
        wantsToAgree_ = true;
    } else if (!origin_.empty()) {
        return false;
    } else {
        kind_ = Kind::Plain;
        if (greetsAt_ != Time::max())
            greet();
        handshake_.receive(firstWords_);
    }
    return true;
}

bool Caller::hearRfb() {
    using State = RfbHandshake::State;
    while (handshake_.state() == State::Talking) {
        std::string bytes;
        if (stream_.read(bytes, handshake_.wanted()) == ViewerStream::Result::Closed)
            return false;
        if (bytes.empty())
            return true;
        handshake_.receive(bytes);
        if (stream_.write(handshake_.takeOutput()) == ViewerStream::Result::Closed)
            return false;
    }
    if (handshake_.state() != State::WantsTls)
        return true;
    // What was said in clear is a few bytes into an empty buffer, and has gone.
    if (!stream_.isEncrypted() && !stream_.beginTls(tls_))
        return false;
    wantsToAgree_ = true;
    return true;
}

void Caller::agree() {
    wantsToAgree_ = false;
    ++agreements_;
    if (kind_ == Kind::Sealed)
        hearSealed();
    else
        agreeOnTls();
}

void Caller::agreeOnTls() {
    if (stream_.shakeHands() == ViewerStream::Result::Closed)
        return handlers_.gone();
    if (stream_.isTlsUp())
        handshake_.tlsIsUp();
    watch();
    if (handshake_.state() == RfbHandshake::State::Done)
        handlers_.ready();
}

void Caller::hearSealed() {
    const bool wasProven = proof() != nullptr;
    std::string early;
    // Nothing is to be said to a screen before somebody is inside.
    if (stream_.read(early, openersPart) == ViewerStream::Result::Closed || !early.empty())
        return handlers_.gone();
    watch();
    if (!wasProven && proof())
        handlers_.ready();
}

void Caller::watch() {
    auto events = static_cast<std::uint32_t>(EPOLLRDHUP);
    // Once a viewer waits for an answer its bytes are left where they are. An opener may still say
    // goodbye.
    if (handshake_.state() != RfbHandshake::State::Done && !wantsToAgree_)
        events |= EPOLLIN;
    if (stream_.wantsToWrite() && !wantsToAgree_)
        events |= EPOLLOUT;
    watch_.setEvents(events);
}

void Caller::tell(const sealing::Standing& standing) {
    if (!proof() || told_ == standing)
        return;
    told_ = standing;
    stream_.line()->tell(standing);
    stream_.flush();
    watch();
}

ViewerStream Caller::admit() {
    if (!isSealed())
        stream_.write(handshake_.admission());
    return release();
}

ViewerStream Caller::refuse(std::string_view reason, sealing::Farewell farewell) {
    if (auto* line = stream_.line()) {
        line->sayGoodbye(farewell);
        stream_.flush();
    } else {
        stream_.write(handshake_.refusal(reason));
    }
    return release();
}

ViewerStream Caller::release() {
    watch_.setEvents(0);
    return std::move(stream_);
}

}  // namespace zelvo::server
