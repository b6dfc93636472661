#include "platform/linux/nat/RouterAnnouncements.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>

#include "platform/linux/nat/base/SocketExchange.h"
#include "platform/linux/nat/codec/PortControl.h"

namespace zelvo::platform {

namespace {

constexpr std::uint32_t AllHosts = 0xe0000001;
constexpr int AnnouncementBurst = 16;
/// More than a router has.
constexpr std::size_t DeviceLimit = 16;

FileDescriptor openGroup(const Ipv4Endpoint& group, std::uint32_t localAddress) {
    FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    const sockaddr_in address = socketAddress(group);
    ip_mreq membership{};
    membership.imr_multiaddr = address.sin_addr;
    membership.imr_interface.s_addr = htonl(localAddress);
    if (!socket || setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return {};
    }
    // Of the group of all hosts every host is a member already.
    setsockopt(socket.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership);
    return socket;
}

template <typename Take>
void readFrom(const FileDescriptor& socket, std::uint32_t sender, const Take& take) {
    std::array<std::uint8_t, 2048> buffer;
    for (int count = 0; count < AnnouncementBurst; ++count) {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t size = recvfrom(socket.get(), buffer.data(), buffer.size(), MSG_TRUNC,
                                      reinterpret_cast<sockaddr*>(&from), &length);
        if (size < 0) {
            return;
        }
        if (static_cast<std::size_t>(size) <= buffer.size() &&
            ntohl(from.sin_addr.s_addr) == sender) {
            take(ByteView(buffer.data(), static_cast<std::size_t>(size)));
        }
    }
}

}  // namespace

bool RestartDetector::isRestart(const SsdpMessage& message) {
    if (message.kind == SsdpMessage::Kind::Farewell) {
        left_ = true;
        return false;
    }
    if (message.kind != SsdpMessage::Kind::Alive) {
        return false;
    }
    // Of the first notice nobody knows whether it is that of a start; asking costs little.
    const auto known = known_.find(message.location);
    const bool restarted = left_ || known == known_.end() || known->second != message.bootId;
    left_ = false;
    if (known != known_.end() || known_.size() < DeviceLimit) {
        known_[message.location] = message.bootId;
        return restarted;
    }
    return false;
}

RouterAnnouncements::RouterAnnouncements(PollLoop& loop, std::uint32_t router,
                                         std::uint32_t localAddress, PortControl portControl,
                                         std::function<void()> restarted)
    : router_(router),
      portControl_(std::move(portControl)),
      restarted_(std::move(restarted)),
      portControlSocket_(openGroup({AllHosts, PortControlClientPort}, localAddress)),
      noticeSocket_(openGroup(SsdpGroup, localAddress)) {
    if (portControlSocket_) {
        portControlWatch_ =
            loop.watch(portControlSocket_.get(), POLLIN, [this](short) { readPortControl(); });
    }
    if (noticeSocket_) {
        noticeWatch_ = loop.watch(noticeSocket_.get(), POLLIN, [this](short) { readNotices(); });
    }
}

void RouterAnnouncements::readPortControl() {
    readFrom(portControlSocket_, router_, portControl_);
}

void RouterAnnouncements::readNotices() {
    bool restarted = false;
    readFrom(noticeSocket_, router_, [this, &restarted](ByteView datagram) {
        const auto message = SsdpMessage::parse(datagram);
        restarted = (message && detector_.isRestart(*message)) || restarted;
    });
    if (restarted) {
        restarted_();
    }
}

}  // namespace zelvo::platform
