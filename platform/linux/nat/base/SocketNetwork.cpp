#include "platform/linux/nat/base/SocketNetwork.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/LocalBinding.h"
#include "platform/linux/nat/base/SocketExchange.h"

namespace zelvo::platform {

namespace {

/// Datagrams taken in one turn, so that a flood does not keep the loop from its other work.
constexpr int DatagramBurstLimit = 16;

class ConnectedPort final : public DatagramPort {
  public:
    ConnectedPort(PollLoop& loop, FileDescriptor socket, DatagramReceiver& receiver)
        : socket_(std::move(socket)), receiver_(receiver) {
        watch_ = loop.watch(socket_.get(), POLLIN, [this](short) { read(); });
    }

    void send(ByteView datagram) override {
        if (::send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) < 0 &&
            errno == ECONNREFUSED) {
            // That was the answer to the datagram before.
            ::send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL);
        }
    }

    std::uint32_t localAddress() const override {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size);
        return ntohl(address.sin_addr.s_addr);
    }

  private:
    void read() {
        std::array<std::uint8_t, 2048> buffer;
        for (int count = 0; count < DatagramBurstLimit; ++count) {
            const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), MSG_TRUNC);
            if (size >= 0 && static_cast<std::size_t>(size) <= buffer.size()) {
                receiver_.received(ByteView(buffer.data(), static_cast<std::size_t>(size)));
            } else if (size < 0 && errno == ECONNREFUSED) {
                receiver_.refused();
            } else if (size < 0) {
                return;
            }
        }
    }

    FileDescriptor socket_;
    DatagramReceiver& receiver_;
    std::unique_ptr<PollLoop::Watch> watch_;
};

class GroupPort final : public SearchPort {
  public:
    GroupPort(PollLoop& loop, FileDescriptor socket, SearchReceiver& receiver)
        : socket_(std::move(socket)), receiver_(receiver) {
        watch_ = loop.watch(socket_.get(), POLLIN, [this](short) { read(); });
    }

    void send(const Ipv4Endpoint& to, ByteView datagram) override {
        const sockaddr_in address = socketAddress(to);
        sendto(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }

  private:
    void read() {
        std::array<std::uint8_t, 2048> buffer;
        for (int count = 0; count < DatagramBurstLimit; ++count) {
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const ssize_t size = recvfrom(socket_.get(), buffer.data(), buffer.size(), MSG_TRUNC,
                                          reinterpret_cast<sockaddr*>(&from), &length);
            if (size < 0) {
                return;
            }
            if (static_cast<std::size_t>(size) <= buffer.size()) {
                receiver_.found({ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)},
                                ByteView(buffer.data(), static_cast<std::size_t>(size)));
            }
        }
    }

    FileDescriptor socket_;
    SearchReceiver& receiver_;
    std::unique_ptr<PollLoop::Watch> watch_;
};

FileDescriptor openDatagrams() {
    return FileDescriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

template <typename Value>
bool setOption(const FileDescriptor& socket, int level, int option, const Value& value) {
    return setsockopt(socket.get(), level, option, &value, sizeof value) == 0;
}

}  // namespace

std::unique_ptr<DatagramPort> SocketNetwork::connect(const Ipv4Endpoint& peer,
                                                     std::uint32_t localAddress,
                                                     DatagramReceiver& receiver) {
    FileDescriptor socket = openDatagrams();
    const sockaddr_in address = socketAddress(peer);
    if (!socket || !bindLocally(socket, {localAddress, 0}) ||
        ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return nullptr;
    }
    return std::make_unique<ConnectedPort>(loop_, std::move(socket), receiver);
}

std::unique_ptr<SearchPort> SocketNetwork::search(std::uint32_t localAddress,
                                                  SearchReceiver& receiver) {
    FileDescriptor socket = openDatagrams();
    const in_addr local{htonl(localAddress)};
    // UPnP 1.0 asks for so many hops.
    const int hops = 4;
    if (!socket || !bindLocally(socket, {localAddress, 0}) ||
        !setOption(socket, IPPROTO_IP, IP_MULTICAST_IF, local) ||
        !setOption(socket, IPPROTO_IP, IP_MULTICAST_TTL, hops)) {
        return nullptr;
    }
    return std::make_unique<GroupPort>(loop_, std::move(socket), receiver);
}

std::unique_ptr<SearchPort> SocketNetwork::join(const Ipv4Endpoint& group,
                                                std::uint32_t localAddress,
                                                SearchReceiver& receiver) {
    FileDescriptor socket = openDatagrams();
    if (!socket || !setOption(socket, SOL_SOCKET, SO_REUSEADDR, 1) || !bindLocally(socket, group)) {
        return nullptr;
    }
    ip_mreq membership{};
    membership.imr_multiaddr.s_addr = htonl(group.address);
    membership.imr_interface.s_addr = htonl(localAddress);
    // Of the group of all hosts every host is a member already.
    setOption(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership);
    return std::make_unique<GroupPort>(loop_, std::move(socket), receiver);
}

std::unique_ptr<HttpExchange> SocketNetwork::exchange(const Ipv4Endpoint& server,
                                                      std::uint32_t localAddress,
                                                      std::string request,
                                                      HttpExchange::Done done) {
    return std::make_unique<SocketExchange>(loop_, server, localAddress, std::move(request),
                                            std::move(done));
}

}  // namespace zelvo::platform
