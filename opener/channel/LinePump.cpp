#include "opener/channel/LinePump.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace zelvo::opener {

namespace {

using platform::FileDescriptor;
using sealing::SealedLine;

constexpr std::size_t Portion = std::size_t{64} << 10;
// A picture is a few of these; whoever falls behind further slows the host down.
constexpr std::size_t MostForViewer = std::size_t{256} << 10;
constexpr std::size_t MostForHost = std::size_t{64} << 10;

/// Bytes taken; 0 at the end, none where there is nothing now.
std::optional<std::size_t> receive(const FileDescriptor& from, std::array<char, Portion>& bytes) {
    const auto count = ::recv(from.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count >= 0)
        return static_cast<std::size_t>(count);
    if (errno == EAGAIN || errno == EINTR)
        return std::nullopt;
    return 0;
}

/// False where nobody is there any more.
bool sendSome(const FileDescriptor& to, std::string& bytes) {
    std::string_view rest = bytes;
    while (!rest.empty()) {
        const auto count = ::send(to.get(), rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            break;
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    const bool isThere = rest.empty() || errno == EAGAIN;
    bytes.erase(0, bytes.size() - rest.size());
    return isThere;
}

LineEnd endOf(SealedLine::Failure failure, bool wasProven) {
    switch (failure) {
        case SealedLine::Failure::NoUpgrade:
            return LineEnd::NotOurs;
        case SealedLine::Failure::Busy:
            return LineEnd::Busy;
        case SealedLine::Failure::BadFrames:
            return wasProven ? LineEnd::Broken : LineEnd::NotOurs;
        case SealedLine::Failure::KeyRefused:
            return LineEnd::KeyRefused;
        case SealedLine::Failure::NotTheHost:
            return LineEnd::NotTheHost;
        case SealedLine::Failure::Cut:
            return wasProven ? LineEnd::Cut : LineEnd::Silent;
        case SealedLine::Failure::Replayed:
        case SealedLine::Failure::BadOpening:
        case SealedLine::Failure::BadRecord:
        case SealedLine::Failure::None:
            break;
    }
    return LineEnd::Broken;
}

}  // namespace

LinePump::LinePump(platform::EventLoop& loop, FileDescriptor host, SealedLine line, Told told)
    : loop_(loop), host_(std::move(host)), line_(std::move(line)), told_(std::move(told)) {
    hostWatch_.emplace(loop_, host_.get(), [this](auto events) { hostIsReady(events); });
    passOn();
}

std::optional<LineEnding> LinePump::ending() const {
    if (const auto farewell = line_.channel().goodbye())
        return LineEnding{LineEnd::Goodbye, *farewell};
    if (line_.state() != SealedLine::State::Failed)
        return std::nullopt;
    LineEnding ending{endOf(line_.failure(), wasProven_)};
    if (ending.end == LineEnd::Cut)
        ending.returnSecret = line_.channel().returnSecret();
    return ending;
}

void LinePump::leave() {
    line_.sayGoodbye(sealing::Farewell::Left);
    closeViewer();
    passOn();
}

bool LinePump::isOver() const {
    const bool isLeaving = line_.state() == SealedLine::State::Closed || ending();
    return hostIsGone_ || !isLeaving || (line_.isOver() && toHost_.empty());
}

void LinePump::hostIsReady(std::uint32_t events) {
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
        std::array<char, Portion> bytes;
        const auto count = receive(host_, bytes);
        if (count && *count > 0) {
            line_.receive({bytes.data(), *count});
        } else if (count) {
            hostIsGone_ = true;
            line_.end();
        }
    }
    passOn();
}

void LinePump::viewerIsReady(std::uint32_t events) {
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
        std::array<char, Portion> bytes;
        const auto count = receive(viewer_, bytes);
        if (count && *count > 0) {
            line_.send({bytes.data(), *count});
        } else if (count) {
            closeViewer();
        }
    }
    passOn();
}

// Everything that has come is brought as far as it goes at once, before the loop turns again.
void LinePump::passOn() {
    const auto& channel = line_.channel();
    if (line_.state() == SealedLine::State::Open && !std::exchange(wasProven_, true))
        told_.opened(channel.digits());
    if (channel.isBack() && !std::exchange(wasBack_, true))
        told_.isBack();
    if (const auto standing = channel.standing(); standing && standing != standing_) {
        standing_ = standing;
        told_.stands(*standing);
    }
    toHost_ += line_.takeOutput();
    auto data = line_.takeData();
    if (!data.empty()) {
        if (!rfbHasBegun_)
            beginRfb();
        if (viewer_)
            toViewer_ += data;
    }
    writeToHost();
    writeToViewer();
    choose();
}

void LinePump::beginRfb() {
    rfbHasBegun_ = true;
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return;
    viewer_.reset(ends[0]);
    viewerWatch_.emplace(loop_, viewer_.get(), [this](auto events) { viewerIsReady(events); });
    told_.rfbBegan(FileDescriptor(ends[1]));
}

void LinePump::writeToHost() {
    // What it has said last may still be there to be read.
    if (!sendSome(host_, toHost_))
        toHost_.clear();
}

void LinePump::writeToViewer() {
    if (viewer_ && !sendSome(viewer_, toViewer_))
        closeViewer();
}

void LinePump::closeViewer() {
    viewerWatch_.reset();
    viewer_.reset();
    toViewer_.clear();
}

void LinePump::choose() {
    std::uint32_t ofHost = 0;
    if (!hostIsGone_) {
        ofHost |= toViewer_.size() < MostForViewer ? std::uint32_t{EPOLLIN} : 0U;
        ofHost |= toHost_.empty() ? 0U : std::uint32_t{EPOLLOUT};
    }
    hostWatch_->setEvents(ofHost);
    if (!viewerWatch_)
        return;
    const bool goesOn = line_.state() == SealedLine::State::Open;
    viewerWatch_->setEvents((goesOn && toHost_.size() < MostForHost ? std::uint32_t{EPOLLIN} : 0U) |
                            (toViewer_.empty() ? 0U : std::uint32_t{EPOLLOUT}));
}

}  // namespace zelvo::opener
