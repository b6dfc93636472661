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

// Both sides of the handshake of version 3.8 without security (RFC 6143, section 7.1), each of
// which can be said in one go: with the VNC side we are the viewer, with an opener the server.
constexpr auto viewersPart = "RFB 003.008\n\x01"sv;
constexpr auto serversPart = "RFB 003.008\n\x01\x01\x00\x00\x00\x00"sv;

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

/// Takes from the front what is expected there; false where it is something else.
bool skip(std::string_view& expected, std::string& bytes) {
    const auto size = std::min(expected.size(), bytes.size());
    if (!bytes.starts_with(expected.substr(0, size)))
        return false;
    expected.remove_prefix(size);
    bytes.erase(0, size);
    return true;
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
      fromServer_(serversPart),
      toServer_(viewersPart),
      // Not for what came in the turn in which it was put out.
      viewerWatch_(loop, stream_.descriptor(),
                   [this](auto events) {
                       if (stream_.descriptor() >= 0)
                           viewerIsReady(events);
                   }),
      serverWatch_(loop, server_.get(), [this](auto events) {
          if (stream_.descriptor() >= 0)
              serverIsReady(events);
      }) {
    if (isSealed()) {
        fromViewer_ = viewersPart;
        // A failure shows at the next event.
        stream_.write(serversPart);
    }
    flushToServer();
    watch();
}

void Guest::viewerIsReady(std::uint32_t events) {
    const auto unsent = stream_.unsent();
    const bool isCut = events & EPOLLERR;
    const bool hasFailed =
        isCut || ((events & EPOLLOUT) && stream_.flush() == ViewerStream::Result::Closed);
    if (stream_.unsent() < unsent)
        standstillUntil_ = std::chrono::steady_clock::now() + longestStandstill;
    if (hasFailed && !isSealed())
        return end(Ending::NetworkDied);
    const bool hasLeft = isCut || (events & (EPOLLRDHUP | EPOLLHUP));
    // What was said before leaving still counts, a goodbye above all.
    if (hasLeft)
        return end(readToTheEnd());
    if (events & EPOLLIN) {
        if (const auto ending = readViewer())
            return end(*ending);
    }
    if (hasFailed)
        return end(endingOfViewer());
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
    if (toServer_.empty() && stream_.hasMore()) {
        if (const auto ending = readViewer())
            return end(*ending);
    }
    watch();
}

std::optional<Ending> Guest::readViewer() {
    // One part at a time: whoever says much waits for the VNC side, not in our memory.
    do {
        if (!toServer_.empty())
            return std::nullopt;
        std::string bytes;
        const auto result = stream_.read(bytes, part);
        if (!skip(fromViewer_, bytes) || !messages_.receive(bytes, toServer_) || !flushToServer())
            return Ending::ViewerLeft;
        if (result == ViewerStream::Result::Closed)
            return endingOfViewer();
    } while (stream_.hasMore());
    return std::nullopt;
}

Ending Guest::readToTheEnd() {
    // A VNC side that takes nothing is not waited for: the rest is read for the goodbye alone.
    while (toServer_.empty()) {
        if (const auto ending = readViewer())
            return *ending;
    }
    std::string unheard;
    while (stream_.read(unheard, part) != ViewerStream::Result::Closed)
        unheard.clear();
    return endingOfViewer();
}

Ending Guest::endingOfViewer() const {
    if (!isSealed())
        return Ending::ViewerLeft;
    // Who has the key says goodbye, or was cut by the network or by somebody. A page that is closed
    // has no time to seal a goodbye; to believe its browser gives nobody anything.
    const auto& line = *stream_.line();
    return line.channel().goodbye() || line.peerGoesAway() ? Ending::ViewerLeft
                                                           : Ending::NetworkDied;
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
    if (!skip(fromServer_, bytes))
        return false;
    if (stream_.unsent() == 0)
        standstillUntil_ = std::chrono::steady_clock::now() + longestStandstill;
    // A failure shows at the viewer's next event, with what was said before it.
    stream_.write(bytes);
    return true;
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

void Guest::tell(const sealing::Standing& standing) {
    if (!isSealed())
        return;
    stream_.line()->tell(standing);
    stream_.flush();
    watch();
}

ViewerStream Guest::putOut(sealing::Farewell reason) {
    viewerWatch_.setEvents(0);
    serverWatch_.setEvents(0);
    if (isSealed())
        stream_.line()->sayGoodbye(reason);
    return std::move(stream_);
}

void Guest::end(Ending ending) {
    viewerWatch_.setEvents(0);
    serverWatch_.setEvents(0);
    // May destroy this.
    auto ended = ended_;
    ended(ending);
}

}  // namespace zelvo::server
