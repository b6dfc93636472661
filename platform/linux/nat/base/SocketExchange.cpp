#include "platform/linux/nat/base/SocketExchange.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "platform/linux/nat/base/LocalBinding.h"

namespace zelvo::platform {

SocketExchange::SocketExchange(PollLoop& loop, const Ipv4Endpoint& server,
                               std::uint32_t localAddress, std::string request, Done done)
    : request_(std::move(request)),
      done_(std::move(done)),
      socket_(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = socketAddress(server);
    if (!bindLocally(socket_, {localAddress, 0}) ||
        (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
         errno != EINPROGRESS)) {
        // Something that is ready at once, so that the failure comes from the loop as well.
        socket_ = FileDescriptor(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
    }
    watch_ = loop.watch(socket_.get(), POLLOUT, [this](short) { ready(); });
}

void SocketExchange::ready() {
    if (!write()) {
        finish(std::nullopt);
    } else if (written_ == request_.size()) {
        watch_->setEvents(POLLIN);
        read();
    }
}

bool SocketExchange::write() {
    while (written_ < request_.size()) {
        const ssize_t size = send(socket_.get(), request_.data() + written_,
                                  request_.size() - written_, MSG_NOSIGNAL);
        if (size < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        written_ += static_cast<std::size_t>(size);
    }
    return true;
}

void SocketExchange::read() {
    std::array<char, 8192> buffer;
    const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    const auto state =
        size > 0 ? reader_.feed({buffer.data(), static_cast<std::size_t>(size)}) : reader_.end();
    if (size < 0 || state == HttpResponseReader::State::Failed) {
        finish(std::nullopt);
    } else if (state == HttpResponseReader::State::Done) {
        finish(reader_.response());
    }
}

void SocketExchange::finish(std::optional<HttpResponse> response) {
    watch_.reset();
    const Done done = std::move(done_);
    done(response);
}

}  // namespace zelvo::platform
