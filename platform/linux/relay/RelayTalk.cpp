#include "platform/linux/relay/RelayTalk.h"

#include <sys/epoll.h>

#include <array>
#include <cstddef>
#include <utility>

namespace zelvo::platform {

namespace {

/// Far more than is ever under way to a relay that reads.
constexpr std::size_t MostUnsent = 8192;

}  // namespace

RelayTalk::RelayTalk(EventLoop& loop, std::unique_ptr<TlsConnection> connection,
                     std::string firstWords, Handlers handlers)
    : connection_(std::move(connection)),
      handlers_(std::move(handlers)),
      unsent_(std::move(firstWords)),
      watch_(std::make_unique<EventLoop::Watch>(loop, connection_->descriptor(),
                                                [this](auto) { move(); })) {
    watch_->setEvents(EPOLLIN | EPOLLOUT);
}

bool RelayTalk::say(const std::string& text) {
    if (unsent_.size() + text.size() > MostUnsent)
        return false;
    unsent_ += text;
    if (!isOver_)
        watch_->setEvents(EPOLLIN | EPOLLOUT);
    return true;
}

std::unique_ptr<TlsConnection> RelayTalk::release() {
    isOver_ = true;
    watch_.reset();
    return std::move(connection_);
}

void RelayTalk::move() {
    const auto sent = unsent_.empty() ? 0 : connection_->write(unsent_);
    unsent_.erase(0, sent.value_or(unsent_.size()));
    watch_->setEvents(unsent_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
    std::array<char, 4096> bytes;
    while (const auto count = connection_->read(bytes)) {
        isOver_ = *count == 0 || !handlers_.heard({bytes.data(), *count});
        if (!isOver_)
            continue;
        watch_->setEvents(0);
        if (*count == 0)
            handlers_.ended();
        return;
    }
}

}  // namespace zelvo::platform
