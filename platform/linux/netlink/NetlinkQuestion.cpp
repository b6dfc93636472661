#include "platform/linux/netlink/NetlinkQuestion.h"

#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

namespace zelvo::platform {

namespace {

/// A kernel that is busy interrupts a dump; it is asked this often.
constexpr int attempts = 5;
/// In milliseconds.
constexpr int answerTimeout = 2000;

enum class Outcome { Complete, MoreToCome, Interrupted, Failed };

/// One try, on a socket of its own: so no answers of an earlier one have to be sorted out, at the
/// price of a few microseconds.
class Attempt {
  public:
    Attempt(const NetlinkQuestion& question, const NetlinkOpener& open)
        : question_(question), socket_(open(question.protocol)) {}

    Outcome run() {
        if (!socket_)
            return ended(Outcome::Failed, "socket", errno);
        for (auto body : question_.bodies) {
            auto outcome = send(body);
            while (outcome == Outcome::MoreToCome)
                outcome = receive();
            if (outcome != Outcome::Complete)
                return outcome;
        }
        return Outcome::Complete;
    }

    const std::string& error() const { return error_; }

  private:
    Outcome ended(Outcome outcome, const char* what, int number) {
        error_ = std::string("netlink: ") + what + ": " +
                 std::error_code(number, std::generic_category()).message();
        return outcome;
    }

    Outcome send(std::span<const std::byte> body) {
        std::vector<std::byte> request(NLMSG_HDRLEN + body.size());
        nlmsghdr header{};
        header.nlmsg_len = static_cast<std::uint32_t>(request.size());
        header.nlmsg_type = question_.type;
        header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        std::memcpy(request.data(), &header, sizeof header);
        std::memcpy(request.data() + NLMSG_HDRLEN, body.data(), body.size());
        return ::send(socket_.get(), request.data(), request.size(), 0) < 0
                   ? ended(Outcome::Failed, "send", errno)
                   : Outcome::MoreToCome;
    }

    /// One datagram.
    Outcome receive() {
        auto size = ::recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0 && errno == EAGAIN) {
            pollfd readable{socket_.get(), POLLIN, 0};
            return ::poll(&readable, 1, answerTimeout) == 0
                       ? ended(Outcome::Failed, "recv", ETIMEDOUT)
                       : Outcome::MoreToCome;
        }
        if (size < 0 && errno == EINTR)
            return Outcome::MoreToCome;
        // ENOBUFS: the kernel had more to say than the socket holds.
        if (size < 0)
            return ended(Outcome::Interrupted, "recv", errno);
        if (static_cast<std::size_t>(size) > buffer_.size())
            return ended(Outcome::Interrupted, "recv", EMSGSIZE);
        return messages(std::span(buffer_).first(static_cast<std::size_t>(size)));
    }

    Outcome messages(std::span<const std::byte> bytes) {
        if (bytes.empty())
            return ended(Outcome::Failed, "recv", ECONNRESET);
        while (bytes.size() >= sizeof(nlmsghdr)) {
            nlmsghdr header;
            std::memcpy(&header, bytes.data(), sizeof header);
            if (header.nlmsg_len < NLMSG_HDRLEN || header.nlmsg_len > bytes.size())
                return ended(Outcome::Interrupted, "answer", EBADMSG);
            if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0)
                return ended(Outcome::Interrupted, "dump", EINTR);
            auto message = bytes.first(header.nlmsg_len).subspan(NLMSG_HDRLEN);
            if (header.nlmsg_type == NLMSG_DONE)
                return Outcome::Complete;
            if (header.nlmsg_type == NLMSG_ERROR)
                return refused(message);
            if (header.nlmsg_type == question_.answerType)
                question_.take(message);
            bytes =
                bytes.subspan(std::min<std::size_t>(NLMSG_ALIGN(header.nlmsg_len), bytes.size()));
        }
        return Outcome::MoreToCome;
    }

    Outcome refused(std::span<const std::byte> message) {
        nlmsgerr answer{};
        std::memcpy(&answer, message.data(), std::min(message.size(), sizeof answer));
        return ended(Outcome::Failed, "answer", -answer.error);
    }

    const NetlinkQuestion& question_;
    FileDescriptor socket_;
    std::string error_;
    // The kernel fills datagrams of up to 32 KiB when it is offered as much.
    std::array<std::byte, 32768> buffer_;
};

}  // namespace

FileDescriptor openNetlink(int protocol) {
    return FileDescriptor(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol));
}

std::optional<std::string> askKernel(const NetlinkQuestion& question, const NetlinkOpener& open) {
    std::string error;
    for (int tried = 0; tried < attempts; ++tried) {
        Attempt attempt(question, open);
        auto outcome = attempt.run();
        if (outcome == Outcome::Complete)
            return std::nullopt;
        error = attempt.error();
        question.startOver();
        if (outcome == Outcome::Failed)
            break;
    }
    return error;
}

std::optional<std::span<const std::byte>> netlinkAttribute(std::span<const std::byte> attributes,
                                                           std::uint16_t type) {
    while (attributes.size() >= sizeof(nlattr)) {
        nlattr attribute;
        std::memcpy(&attribute, attributes.data(), sizeof attribute);
        if (attribute.nla_len < NLA_HDRLEN || attribute.nla_len > attributes.size())
            break;
        if ((attribute.nla_type & NLA_TYPE_MASK) == type)
            return attributes.first(attribute.nla_len).subspan(NLA_HDRLEN);
        attributes = attributes.subspan(
            std::min<std::size_t>(NLA_ALIGN(attribute.nla_len), attributes.size()));
    }
    return std::nullopt;
}

}  // namespace zelvo::platform
