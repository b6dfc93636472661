#include "server/gate/Guest.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace zelvo::server {

namespace {

using namespace std::string_view_literals;
using platform::gate::Ending;

// Both sides of the handshake with the VNC side, version 3.8 without security (RFC 6143,
// section 7.1): ours, which can be said in one go, and what it says to that.
constexpr auto ourGreeting = "RFB 003.008\n\x01"sv;
constexpr auto itsGreeting = "RFB 003.008\n\x01\x01\x00\x00\x00\x00"sv;

constexpr std::size_t part = 64 * 1024;

struct Pair {
    platform::FileDescriptor ours;
    platform::FileDescriptor theirs;
};

Pair openPair() {
    std::array<int, 2> ends{-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0)
        return {};
    return {platform::FileDescriptor(ends[0]), platform::FileDescriptor(ends[1])};
}

bool isOver(long count) {
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

}  // namespace

Guest::Guest(platform::EventLoop& loop, ViewerStream stream, Ended ended)
    : stream_(std::move(stream)),
      server_([this] {
          auto pair = openPair();
          serverEnd_ = std::move(pair.theirs);
          return std::move(pair.ours);
      }()),
      ended_(std::move(ended)),
      toServer_(ourGreeting),
      viewerWatch_(loop, stream_.descriptor(), [this](auto events) { viewerIsReady(events); }),
      serverWatch_(loop, server_.get(), [this](auto events) { serverIsReady(events); }) {
    flushToServer();
    watch();
}

void Guest::viewerIsReady(std::uint32_t events) {
    const auto unsent = stream_.unsent();
    if ((events & EPOLLOUT) && stream_.flush() == ViewerStream::Result::Closed)
        return end(Ending::NetworkDied);
    if (stream_.unsent() < unsent)
        standstillUntil_ = std::chrono::steady_clock::now() + longestStandstill;
    if (events & EPOLLERR)
        return end(Ending::NetworkDied);
    const bool hasLeft = events & (EPOLLRDHUP | EPOLLHUP);
    // What was said before leaving still counts.
    while (events & (EPOLLIN | EPOLLHUP)) {
        if (!readViewer())
            return end(Ending::ViewerLeft);
        if (!hasLeft || !toServer_.empty())
            break;
    }
    if (hasLeft)
        return end(Ending::ViewerLeft);
    watch();
}

void Guest::serverIsReady(std::uint32_t events) {
    if ((events & EPOLLOUT) && !flushToServer())
        return end(Ending::ScreenEnded);
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) && !readServer())
        return end(Ending::ScreenEnded);
    if (stream_.unsent() > mostUnsent)
        return end(Ending::NetworkDied);
    // Bytes that TLS has decrypted already come with no event of their own.
    if (toServer_.empty() && stream_.hasMore() && !readViewer())
        return end(Ending::ViewerLeft);
    watch();
}

bool Guest::readViewer() {
    // One part at a time: whoever says much waits for the VNC side, not in our memory.
    do {
        if (!toServer_.empty())
            return true;
        std::string bytes;
        const auto result = stream_.read(bytes, part);
        if (!messages_.receive(bytes, toServer_) || !flushToServer() ||
            result == ViewerStream::Result::Closed)
            return false;
    } while (stream_.hasMore());
    return true;
}

bool Guest::flushToServer() {
    while (!toServer_.empty()) {
        auto count = ::send(server_.get(), toServer_.data(), toServer_.size(), MSG_NOSIGNAL);
        if (count < 0)
            return !isOver(count);
        toServer_.erase(0, static_cast<std::size_t>(count));
    }
    return true;
}

bool Guest::readServer() {
    std::string bytes(part, '\0');
    auto count = ::recv(server_.get(), bytes.data(), bytes.size(), 0);
    if (isOver(count))
        return false;
    bytes.resize(static_cast<std::size_t>(std::max(count, 0L)));
    if (!skipGreeting(bytes))
        return false;
    if (stream_.unsent() == 0)
        standstillUntil_ = std::chrono::steady_clock::now() + longestStandstill;
    return stream_.write(bytes) == ViewerStream::Result::Ok;
}

bool Guest::skipGreeting(std::string& bytes) {
    if (greeting_.size() == itsGreeting.size())
        return true;
    auto missing = std::min(itsGreeting.size() - greeting_.size(), bytes.size());
    greeting_ += bytes.substr(0, missing);
    bytes.erase(0, missing);
    return itsGreeting.starts_with(greeting_);
}

void Guest::watch() {
    auto viewer = static_cast<std::uint32_t>(EPOLLRDHUP);
    if (toServer_.empty())
        viewer |= EPOLLIN;
    if (stream_.wantsToWrite())
        viewer |= EPOLLOUT;
    viewerWatch_.setEvents(viewer);
    serverWatch_.setEvents(toServer_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
}

void Guest::end(Ending ending) {
    viewerWatch_.setEvents(0);
    serverWatch_.setEvents(0);
    // May destroy this.
    auto ended = ended_;
    ended(ending);
}

}  // namespace zelvo::server
