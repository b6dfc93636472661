#include "platform/linux/machine/NetlinkSocketTable.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/netlink/TcpSockets.h"

namespace zelvo::platform {

namespace {

inet_diag_msg messageAt(const std::byte* at) {
    inet_diag_msg message;
    std::memcpy(&message, at, sizeof message);
    return message;
}

bool isMapped(const __be32 (&address)[4]) {
    return address[0] == 0 && address[1] == 0 && address[2] == htonl(0xFFFF);
}

bool isWildcard(const __be32 (&address)[4]) {
    return (address[0] | address[1] | address[2] | address[3]) == 0;
}

class Listing {
  public:
    Listing(SocketFamily family, SocketState state) : family_(family), state_(state) {
        text_.reserve(1024);
    }

    void add(const std::byte* message, std::size_t size) {
        if (size < sizeof(inet_diag_msg))
            return;
        auto socket = messageAt(message);
        if (socket.idiag_family == AF_INET)
            return line("tcp4", socket, false);
        if (socket.idiag_family != AF_INET6)
            return;
        const auto& address = socket.id;
        if (isMapped(address.idiag_src))
            return line("tcp4", socket, true);
        bool isOnlyV6 = onlyV6(message, size);
        bool takesV4 =
            socket.idiag_state == TCP_LISTEN && isWildcard(address.idiag_src) && !isOnlyV6;
        if (takesV4)
            return line("tcp46", socket, false);
        if (family_ == SocketFamily::Any)
            line("tcp6", socket, false);
    }

    void clear() { text_.clear(); }
    std::string take() { return std::move(text_); }

  private:
    /// The IPV6_V6ONLY attribute; a socket without it is taken as restricted.
    static bool onlyV6(const std::byte* message, std::size_t size) {
        auto at = NLMSG_ALIGN(sizeof(inet_diag_msg));
        while (at + sizeof(rtattr) <= size) {
            rtattr attribute;
            std::memcpy(&attribute, message + at, sizeof attribute);
            if (attribute.rta_len < sizeof attribute || attribute.rta_len > size - at)
                break;
            if (attribute.rta_type == INET_DIAG_SKV6ONLY && attribute.rta_len > sizeof attribute)
                return message[at + sizeof attribute] != std::byte{0};
            at += RTA_ALIGN(attribute.rta_len);
        }
        return true;
    }

    void line(std::string_view protocol, const inet_diag_msg& socket, bool mapped) {
        text_ += protocol;
        text_ += " 0 0 ";
        endpoint(socket, socket.id.idiag_src, socket.id.idiag_sport, mapped);
        text_ += ' ';
        endpoint(socket, socket.id.idiag_dst, socket.id.idiag_dport, mapped);
        text_ += state_ == SocketState::Listen ? " LISTEN\n" : " ESTABLISHED\n";
    }

    void endpoint(const inet_diag_msg& socket, const __be32 (&address)[4], __be16 port,
                  bool mapped) {
        if (isWildcard(address) || (mapped && address[3] == 0))
            text_ += '*';
        else if (socket.idiag_family == AF_INET)
            dotted(address[0]);
        else if (mapped)
            dotted(address[3]);
        else
            colons(address);
        text_ += '.';
        if (port == 0)
            text_ += '*';
        else
            decimal(ntohs(port));
    }

    void decimal(unsigned number) {
        std::array<char, 10> digits;
        auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        text_.append(digits.data(), end);
    }

    void dotted(__be32 address) {
        auto number = ntohl(address);
        for (int shift = 24; shift >= 0; shift -= 8) {
            decimal(number >> shift & 0xFF);
            if (shift > 0)
                text_ += '.';
        }
    }

    void colons(const __be32 (&address)[4]) {
        std::array<char, INET6_ADDRSTRLEN> buffer;
        if (::inet_ntop(AF_INET6, address, buffer.data(), buffer.size()))
            text_ += buffer.data();
    }

    SocketFamily family_;
    SocketState state_;
    std::string text_;
};

}  // namespace

SocketListing NetlinkSocketTable::tcpSockets(SocketFamily family, SocketState state) const {
    // Also for IPv4 alone both are asked: IPv6 sockets may carry IPv4.
    Listing listing(family, state);
    auto error = listTcpSockets(
        state == SocketState::Listen ? TCP_LISTEN : TCP_ESTABLISHED, [&] { listing.clear(); },
        [&](std::span<const std::byte> message) { listing.add(message.data(), message.size()); },
        open_);
    if (error)
        return {std::nullopt, *error};
    return {listing.take(), {}};
}

}  // namespace zelvo::platform
