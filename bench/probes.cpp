// How long the listening probe takes, side by side with the same question asked through netstat and
// grep.

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "host/KVSystemInformation.h"
#include "platform/Log.h"
#include "platform/linux/machine/NetlinkSocketTable.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr std::uint16_t Port = 5900;

struct NoLog : zelvo::platform::Log {
    void line(std::string_view text) override {
        std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
    }
    void standardError(std::string_view text) override { line(text); }
};

/// A socket that closes itself.
class Socket {
  public:
    explicit Socket(int descriptor) : descriptor_(descriptor) {
        if (descriptor_ < 0) {
            std::perror("socket");
            std::exit(1);
        }
    }
    Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Socket& operator=(Socket&&) = delete;
    ~Socket() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

Socket listener(in_addr_t address, std::uint16_t port) {
    Socket result(socket(AF_INET, SOCK_STREAM, 0));
    int yes = 1;
    setsockopt(result.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(address);
    name.sin_port = htons(port);
    if (bind(result.get(), reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
        listen(result.get(), 64) != 0) {
        std::perror("listen");
        std::exit(1);
    }
    return result;
}

/// Adds connections on loopback until `sockets` of them, both ends counted, are established.
void establish(std::vector<Socket>& held, const Socket& server, std::size_t sockets) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    getsockname(server.get(), reinterpret_cast<sockaddr*>(&name), &size);
    while (held.size() < sockets) {
        Socket client(socket(AF_INET, SOCK_STREAM, 0));
        if (connect(client.get(), reinterpret_cast<sockaddr*>(&name), sizeof name) != 0) {
            std::perror("connect");
            std::exit(1);
        }
        held.push_back(std::move(client));
        held.emplace_back(accept(server.get(), nullptr, nullptr));
    }
}

/// The median time of one call.
template <typename Call>
double medianMicroseconds(int runs, Call call) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        auto begin = Clock::now();
        call();
        times.push_back(Microseconds(Clock::now() - begin).count());
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[static_cast<std::size_t>(runs) / 2];
}

bool askNetstat() {
    auto command = "netstat -nat -4 | grep '0\\.0\\.0\\.0:" + std::to_string(Port) +
                   "[[:space:]]' | grep -q LISTEN";
    return std::system(command.c_str()) == 0;
}

bool compare(const char* label, double wanted) {
    zelvo::platform::NetlinkSocketTable table;
    NoLog log;
    auto probe = [&] {
        if (!zelvo::KVSystemInformation::isListeningOnPort(table, log, Port))
            std::exit(1);
    };
    probe();
    if (!askNetstat()) {
        std::fprintf(stderr, "netstat does not see the listener\n");
        std::exit(1);
    }
    auto ours = medianMicroseconds(500, probe);
    auto theirs = medianMicroseconds(15, [] { askNetstat(); });
    auto connection = medianMicroseconds(
        50, [&] { zelvo::KVSystemInformation::establishedConnectionOnPort(table, log, Port); });
    bool reached = theirs / ours >= wanted;
    std::printf(
        "%-36s probe %8.1f us   netstat and grep %8.0f us   %5.0f times faster (wanted %.0f)%s\n",
        label, ours, theirs, theirs / ours, wanted, reached ? "" : "  MISSED");
    std::printf("%-36s probe %8.1f us\n", "  looking for a connection", connection);
    return reached;
}

}  // namespace

int main() {
    rlimit files{20000, 20000};
    setrlimit(RLIMIT_NOFILE, &files);
    auto vnc = listener(INADDR_ANY, Port);
    bool reached = compare("listening, few sockets", 100);
    auto server = listener(INADDR_LOOPBACK, 0);
    std::vector<Socket> held;
    establish(held, server, 1000);
    reached = compare("listening, 1,000 established sockets", 50) && reached;
    establish(held, server, 5000);
    reached = compare("listening, 5,000 established sockets", 20) && reached;
    return reached ? 0 : 1;
}
