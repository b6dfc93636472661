#include "server/gate/Caller.h"

#include <sys/epoll.h>

#include <utility>

namespace zelvo::server {

Caller::Caller(platform::EventLoop& loop, const AnonymousTls& tls, platform::FileDescriptor socket,
               const platform::gate::Peer& peer, Handlers handlers)
    : tls_(tls),
      peer_(peer),
      handlers_(std::move(handlers)),
      stream_(std::move(socket)),
      watch_(loop, stream_.descriptor(), [this](std::uint32_t events) {
          if (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR))
              return handlers_.gone();
          proceed();
      }) {
    // A failure shows at the first event.
    stream_.write(handshake_.takeOutput());
    watch();
}

void Caller::proceed() {
    if (!talk() || handshake_.state() == RfbHandshake::State::Failed)
        return handlers_.gone();
    watch();
    if (handshake_.state() == RfbHandshake::State::Done)
        handlers_.ready();
}

bool Caller::talk() {
    using State = RfbHandshake::State;
    if (stream_.flush() == ViewerStream::Result::Closed)
        return false;
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
    if (stream_.shakeHands() == ViewerStream::Result::Closed)
        return handlers_.gone();
    if (stream_.isTlsUp())
        handshake_.tlsIsUp();
    watch();
    if (handshake_.state() == RfbHandshake::State::Done)
        handlers_.ready();
}

void Caller::watch() {
    auto events = static_cast<std::uint32_t>(EPOLLRDHUP);
    // Once it waits for an answer its bytes are left where they are.
    if (handshake_.state() != RfbHandshake::State::Done && !wantsToAgree_)
        events |= EPOLLIN;
    if (stream_.wantsToWrite() && !wantsToAgree_)
        events |= EPOLLOUT;
    watch_.setEvents(events);
}

ViewerStream Caller::admit() {
    watch_.setEvents(0);
    stream_.write(handshake_.admission());
    return std::move(stream_);
}

ViewerStream Caller::refuse(std::string_view reason) {
    watch_.setEvents(0);
    stream_.write(handshake_.refusal(reason));
    return std::move(stream_);
}

}  // namespace zelvo::server
