#include "platform/linux/nat/SocketNetwork.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "platform/linux/nat/OwnedDescriptor.h"

namespace zelvo::platform {

namespace {

/// Datagrams taken in one turn, so that a flood does not keep the loop from its other work.
constexpr int BurstLimit = 16;

sockaddr_in socketAddress(const Ipv4Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(endpoint.address);
    return address;
}

class ConnectedPort final : public DatagramPort {
  public:
    ConnectedPort(PollLoop& loop, OwnedDescriptor socket, DatagramReceiver& receiver)
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
        for (int count = 0; count < BurstLimit; ++count) {
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

    OwnedDescriptor socket_;
    DatagramReceiver& receiver_;
    std::unique_ptr<PollLoop::Watch> watch_;
};

}  // namespace

std::string addressText(std::uint32_t address) {
    const in_addr raw{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &raw, text.data(), text.size());
}

std::string endpointText(const Ipv4Endpoint& endpoint) {
    return addressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

std::unique_ptr<DatagramPort> SocketNetwork::connect(const Ipv4Endpoint& peer,
                                                     DatagramReceiver& receiver) {
    OwnedDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const sockaddr_in address = socketAddress(peer);
    if (!socket ||
        ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return nullptr;
    }
    return std::make_unique<ConnectedPort>(loop_, std::move(socket), receiver);
}

}  // namespace zelvo::platform
