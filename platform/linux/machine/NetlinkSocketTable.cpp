#include "platform/linux/machine/NetlinkSocketTable.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

namespace {

/// A kernel that is busy interrupts a dump; it is asked this often.
constexpr int attempts = 5;
/// The kernel answers at once. Only a broken one makes a caller wait this long, in milliseconds.
constexpr int listingTimeout = 2000;

struct Request {
    nlmsghdr header;
    inet_diag_req_v2 body;
};

enum class Outcome { Complete, Again, Failed };

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

class Dump {
  public:
    Dump(int socket, Listing& listing) : socket_(socket), listing_(listing) {}

    Outcome run(std::uint8_t family, std::uint32_t states) {
        Request request{};
        request.header.nlmsg_len = sizeof request;
        request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        request.header.nlmsg_seq = ++sequence_;
        request.body.sdiag_family = family;
        request.body.sdiag_protocol = IPPROTO_TCP;
        request.body.idiag_states = states;
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        if (::sendto(socket_, &request, sizeof request, 0,
                     reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) < 0)
            return failed("sendto", errno);
        for (;;) {
            if (auto outcome = receive(); outcome != Outcome::Again || interrupted_)
                return outcome;
        }
    }

    const std::string& error() const { return error_; }

  private:
    Outcome failed(const char* what, int number) {
        error_ = std::string("sock_diag: ") + what + ": " +
                 std::error_code(number, std::generic_category()).message();
        return Outcome::Failed;
    }

    /// One datagram. Again: more are to come, or the whole dump is to be repeated.
    Outcome receive() {
        pollfd readable{socket_, POLLIN, 0};
        auto size = ::recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0 && errno == EAGAIN) {
            auto ready = ::poll(&readable, 1, listingTimeout);
            if (ready == 0)
                return failed("recv", ETIMEDOUT);
            return Outcome::Again;
        }
        if (size < 0)
            return errno == EINTR ? Outcome::Again : repeat("recv", errno);
        if (static_cast<std::size_t>(size) > buffer_.size())
            return repeat("recv", EMSGSIZE);
        return messages(static_cast<std::size_t>(size));
    }

    Outcome messages(std::size_t size) {
        for (std::size_t at = 0; at + sizeof(nlmsghdr) <= size;) {
            nlmsghdr header;
            std::memcpy(&header, buffer_.data() + at, sizeof header);
            if (header.nlmsg_len < sizeof header || header.nlmsg_len > size - at)
                return repeat("answer", EBADMSG);
            if (header.nlmsg_seq == sequence_) {
                if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0)
                    return repeat("dump", EINTR);
                const auto* body = buffer_.data() + at + NLMSG_HDRLEN;
                auto length = header.nlmsg_len - NLMSG_HDRLEN;
                if (header.nlmsg_type == NLMSG_DONE)
                    return Outcome::Complete;
                if (header.nlmsg_type == NLMSG_ERROR)
                    return refused(body, length);
                if (header.nlmsg_type == SOCK_DIAG_BY_FAMILY)
                    listing_.add(body, length);
            }
            at += NLMSG_ALIGN(header.nlmsg_len);
        }
        return Outcome::Again;
    }

    Outcome refused(const std::byte* body, std::size_t length) {
        nlmsgerr answer{};
        if (length >= sizeof answer)
            std::memcpy(&answer, body, sizeof answer);
        return failed("dump", -answer.error);
    }

    Outcome repeat(const char* what, int number) {
        failed(what, number);
        interrupted_ = true;
        return Outcome::Again;
    }

    int socket_;
    Listing& listing_;
    std::uint32_t sequence_ = 0;
    bool interrupted_ = false;
    std::string error_;
    // The kernel fills datagrams of up to 32 KiB when it is offered as much.
    std::array<std::byte, 32768> buffer_;
};

Outcome attempt(SocketState state, Listing& listing, std::string& error) {
    // A socket of its own for each try leaves no answers of an earlier one to be sorted out, and
    // costs a few microseconds.
    FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    if (!socket) {
        error = "sock_diag: socket: " + std::error_code(errno, std::generic_category()).message();
        return Outcome::Failed;
    }
    auto states = 1U << (state == SocketState::Listen ? TCP_LISTEN : TCP_ESTABLISHED);
    Dump dump(socket.get(), listing);
    auto outcome = dump.run(AF_INET, states);
    // Also for IPv4 alone: IPv6 sockets may carry IPv4.
    if (outcome == Outcome::Complete)
        outcome = dump.run(AF_INET6, states);
    error = dump.error();
    return outcome;
}

}  // namespace

SocketListing NetlinkSocketTable::tcpSockets(SocketFamily family, SocketState state) const {
    std::string error;
    for (int tried = 0; tried < attempts; ++tried) {
        Listing listing(family, state);
        auto outcome = attempt(state, listing, error);
        if (outcome == Outcome::Complete)
            return {listing.take(), {}};
        if (outcome == Outcome::Failed)
            break;
    }
    return {std::nullopt, error};
}

}  // namespace zelvo::platform
