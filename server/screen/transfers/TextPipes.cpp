#include "server/screen/transfers/TextPipes.h"

#include <fcntl.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace zelvo::server {

namespace {

/// So many programs may take their time to paste.
constexpr std::size_t mostTransfers = 8;

bool isToBeTriedAgain() {
    return errno == EAGAIN || errno == EINTR;
}

void setNotBlocking(const platform::FileDescriptor& pipe) {
    ::fcntl(pipe.get(), F_SETFL, ::fcntl(pipe.get(), F_GETFL) | O_NONBLOCK);
}

}  // namespace

bool isBetterTextType(std::string_view type, std::string_view than) {
    auto rank = [](std::string_view name) {
        return std::find(textTypes.begin(), textTypes.end(), name);
    };
    return rank(type) < rank(than);
}

void TextPipes::read(platform::FileDescriptor pipe, std::function<void(const std::string&)> done) {
    setNotBlocking(pipe);
    incoming_ = std::make_unique<Transfer>();
    incoming_->pipe = std::move(pipe);
    incoming_->watch = std::make_unique<platform::EventLoop::Watch>(
        loop_, incoming_->pipe.get(), [this, done = std::move(done)](auto) { goOnReading(done); });
    incoming_->watch->setEvents(EPOLLIN);
}

void TextPipes::goOnReading(const std::function<void(const std::string&)>& done) {
    std::array<char, 65536> part;
    const auto count = ::read(incoming_->pipe.get(), part.data(), part.size());
    if (count < 0 && isToBeTriedAgain())
        return;
    if (count > 0 && incoming_->text.size() <= longestText) {
        incoming_->text.append(part.data(), static_cast<std::size_t>(count));
        return;
    }
    const auto text = std::move(incoming_->text);
    incoming_.reset();
    if (count == 0 && !text.empty() && text.size() <= longestText)
        done(text);
}

void TextPipes::write(platform::FileDescriptor pipe, std::string text,
                      std::function<void(bool)> done) {
    setNotBlocking(pipe);
    if (outgoing_.size() == mostTransfers)
        outgoing_.pop_front();
    auto& transfer = *outgoing_.emplace_back(std::make_unique<Transfer>());
    transfer.pipe = std::move(pipe);
    transfer.text = std::move(text);
    transfer.watch = std::make_unique<platform::EventLoop::Watch>(
        loop_, transfer.pipe.get(),
        [this, &transfer, done = std::move(done)](auto) { goOnWriting(transfer, done); });
    transfer.watch->setEvents(EPOLLOUT);
}

void TextPipes::goOnWriting(Transfer& transfer, const std::function<void(bool)>& done) {
    const auto count = ::write(transfer.pipe.get(), transfer.text.data() + transfer.done,
                               transfer.text.size() - transfer.done);
    if (count < 0 && isToBeTriedAgain())
        return;
    transfer.done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    const bool isDone = transfer.done == transfer.text.size();
    if (count > 0 && !isDone)
        return;
    std::erase_if(outgoing_, [&](const auto& known) { return known.get() == &transfer; });
    if (done)
        done(isDone);
}

}  // namespace zelvo::server
