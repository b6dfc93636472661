#include "bench/SealedTunnel.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <ctime>
#include <utility>

namespace zelvo::bench {

namespace {

constexpr std::size_t part = 64 * 1024;

sockaddr_in addressOf(const char* text, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

void sendAtOnce(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

bool sendAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::int64_t processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

SealedTunnel::SealedTunnel(const char* address, int port, const sealing::ShareLink& link)
    : host_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      end_(::eventfd(0, EFD_CLOEXEC)),
      line_(sealing::SealedLine::opener(sealing::ChannelKey(link), "Bench")) {
    const auto host = addressOf(address, port);
    auto own = addressOf("127.0.0.1", 0);
    socklen_t size = sizeof own;
    if (::connect(host_.get(), reinterpret_cast<const sockaddr*>(&host), sizeof host) != 0 ||
        ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&own), size) != 0 ||
        ::listen(listener_.get(), 1) != 0 ||
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&own), &size) != 0)
        return;
    sendAtOnce(host_.get());
    port_ = ntohs(own.sin_port);
    thread_ = std::thread([this] { run(); });
}

SealedTunnel::~SealedTunnel() {
    ::eventfd_write(end_.get(), 1);
    if (thread_.joinable())
        thread_.join();
}

template <typename Work>
void SealedTunnel::count(Work work) {
    const auto before = processorTime();
    work();
    cost_ += processorTime() - before;
}

void SealedTunnel::run() {
    const platform::FileDescriptor viewer(
        ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    sendAtOnce(viewer.get());
    std::string bytes(part, '\0');
    auto read = [&](int socket) {
        const auto count = ::recv(socket, bytes.data(), bytes.size(), 0);
        return std::string_view(bytes).substr(0, static_cast<std::size_t>(std::max(count, 0L)));
    };
    std::string output, picture;
    while (!line_.isOver()) {
        count([&] { output = line_.takeOutput(); });
        std::array<pollfd, 3> ready{pollfd{host_.get(), POLLIN, 0}, pollfd{viewer.get(), POLLIN, 0},
                                    pollfd{end_.get(), POLLIN, 0}};
        if (!sendAll(host_.get(), output) || ::poll(ready.data(), ready.size(), -1) < 0 ||
            ready[2].revents)
            return;
        if (ready[0].revents) {
            const auto heard = read(host_.get());
            count([&] {
                line_.receive(heard);
                picture = line_.takeData();
            });
            if (heard.empty() || !sendAll(viewer.get(), picture))
                return;
        }
        if (ready[1].revents) {
            const auto said = read(viewer.get());
            if (said.empty())
                return;
            count([&] { line_.send(said); });
        }
    }
}

}  // namespace zelvo::bench
