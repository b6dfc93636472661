#include "platform/linux/tls/TlsBridge.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace zelvo::platform {

namespace {

constexpr std::size_t Part = std::size_t{16} << 10;
constexpr std::size_t MostHeld = std::size_t{64} << 10;
/// Others have their turn then.
constexpr int MostRounds = 16;

}  // namespace

TlsBridge::TlsBridge(EventLoop& loop, std::unique_ptr<TlsConnection> far, std::string fromFar,
                     FileDescriptor near, std::function<void()> ended)
    : far_(std::move(far)),
      near_(std::move(near)),
      ended_(std::move(ended)),
      toNear_(std::move(fromFar)),
      farWatch_(loop, far_->descriptor(), [this](auto) { move(); }),
      nearWatch_(loop, near_.get(), [this](auto) { move(); }) {
    // What TLS holds already shows in no poll.
    farWatch_.setEvents(EPOLLIN | EPOLLOUT);
}

void TlsBridge::move() {
    if (!ended_)
        return;
    int rounds = 0;
    // All of them, each time.
    while ((int(readFar()) | int(writeNear()) | int(readNear()) | int(writeFar())) != 0 &&
           ++rounds < MostRounds) {
    }
    if (nearIsGone_ && toFar_.empty() && !farIsGone_ && !std::exchange(hasSaidEnd_, true))
        far_->sayEnd();
    if (isOver()) {
        farWatch_.setEvents(0);
        nearWatch_.setEvents(0);
        far_.reset();
        near_.reset();
        return std::exchange(ended_, nullptr)();
    }
    const bool goesOn = rounds == MostRounds;
    const auto events = [](bool reads, bool writes) {
        return (reads ? static_cast<std::uint32_t>(EPOLLIN) : 0U) |
               (writes ? static_cast<std::uint32_t>(EPOLLOUT) : 0U);
    };
    farWatch_.setEvents(
        events(!farIsGone_ && toNear_.size() < MostHeld, !farIsGone_ && !toFar_.empty()));
    // Where there is more to do, the next turn finds one of the two ready.
    nearWatch_.setEvents(events(!nearIsGone_ && toFar_.size() < MostHeld,
                                !nearIsGone_ && (goesOn || !toNear_.empty())));
}

bool TlsBridge::isOver() const {
    return farIsGone_ && (toNear_.empty() || nearIsGone_);
}

bool TlsBridge::readFar() {
    if (farIsGone_ || toNear_.size() >= MostHeld)
        return false;
    std::array<char, Part> bytes;
    const auto count = far_->read(bytes);
    if (count == 0U)
        farIsGone_ = true;
    if (!nearIsGone_)
        toNear_.append(bytes.data(), count.value_or(0));
    return count.value_or(0) > 0;
}

bool TlsBridge::writeFar() {
    if (farIsGone_ || toFar_.empty())
        return false;
    const auto count = far_->write(toFar_);
    // What it has said before may still be there to be read.
    if (!count)
        toFar_.clear();
    else
        toFar_.erase(0, *count);
    return count.value_or(0) > 0;
}

bool TlsBridge::readNear() {
    if (nearIsGone_ || toFar_.size() >= MostHeld)
        return false;
    std::array<char, Part> bytes;
    const auto count = ::recv(near_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count > 0)
        toFar_.append(bytes.data(), static_cast<std::size_t>(count));
    else if (count == 0 || (errno != EAGAIN && errno != EINTR))
        nearIsGone_ = true;
    return count > 0;
}

bool TlsBridge::writeNear() {
    if (nearIsGone_)
        toNear_.clear();
    if (toNear_.empty())
        return false;
    const auto count =
        ::send(near_.get(), toNear_.data(), toNear_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0)
        toNear_.erase(0, static_cast<std::size_t>(count));
    else if (errno != EAGAIN && errno != EINTR)
        toNear_.clear();
    return count > 0;
}

}  // namespace zelvo::platform
