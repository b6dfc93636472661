#include "platform/linux/NetlinkSocketTable.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "platform/FileDescriptor.h"

using namespace zelvo::platform;

namespace {

class Socket {
  public:
    explicit Socket(int family) : file_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    explicit Socket(FileDescriptor file) : file_(std::move(file)) {}

    /// At a port that the kernel picks.
    Socket& listenAt(const char* address, bool onlyV6 = false) {
        sockaddr_storage storage{};
        socklen_t size = make(storage, address, 0);
        int flag = onlyV6 ? 1 : 0;
        if (storage.ss_family == AF_INET6) {
            EXPECT_EQ(::setsockopt(file_.get(), IPPROTO_IPV6, IPV6_V6ONLY, &flag, sizeof flag), 0);
        }
        EXPECT_EQ(::bind(file_.get(), reinterpret_cast<sockaddr*>(&storage), size), 0);
        EXPECT_EQ(::listen(file_.get(), 8), 0);
        return *this;
    }
    Socket& connectTo(const char* address, int port) {
        sockaddr_storage storage{};
        socklen_t size = make(storage, address, port);
        EXPECT_EQ(::connect(file_.get(), reinterpret_cast<sockaddr*>(&storage), size), 0);
        return *this;
    }
    Socket acceptOne() { return Socket(FileDescriptor(::accept(file_.get(), nullptr, nullptr))); }
    void close() { file_.reset(); }

    int port() const {
        sockaddr_storage storage{};
        socklen_t size = sizeof storage;
        ::getsockname(file_.get(), reinterpret_cast<sockaddr*>(&storage), &size);
        // The port lies at the same place in both families.
        return ntohs(reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
    }

  private:
    static socklen_t make(sockaddr_storage& storage, const char* address, int port) {
        auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
        auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
        v4.sin_port = htons(static_cast<std::uint16_t>(port));
        if (::inet_pton(AF_INET, address, &v4.sin_addr) == 1) {
            storage.ss_family = AF_INET;
            return sizeof v4;
        }
        ::inet_pton(AF_INET6, address, &v6.sin6_addr);
        storage.ss_family = AF_INET6;
        return sizeof v6;
    }

    FileDescriptor file_;
};

class NetlinkSocketTableTest : public testing::Test {
  protected:
    /// The lines that name the port, each with its end.
    std::string linesOf(int port, SocketFamily family, SocketState state) {
        auto listing = table.tcpSockets(family, state);
        EXPECT_TRUE(listing.text) << listing.error;
        std::istringstream text(listing.text.value_or(""));
        std::string found;
        for (std::string line; std::getline(text, line);) {
            if ((line + " ").find("." + std::to_string(port) + " ") != line.npos)
                found += line + "\n";
        }
        return found;
    }
    std::string listening(const Socket& socket, SocketFamily family = SocketFamily::IPv4) {
        return linesOf(socket.port(), family, SocketState::Listen);
    }
    std::string established(const Socket& socket, SocketFamily family = SocketFamily::Any) {
        return linesOf(socket.port(), family, SocketState::Established);
    }

    NetlinkSocketTable table;
};

}  // namespace

TEST_F(NetlinkSocketTableTest, ListsWhatListensToIPv4) {
    struct Case {
        int family;
        const char* address;
        bool onlyV6;
        /// Protocol and address in each of the two listings; none where it is not listed.
        const char* inIPv4;
        const char* inAny;
    };
    for (const auto& test :
         {Case{AF_INET, "0.0.0.0", false, "tcp4 0 0 *", "tcp4 0 0 *"},
          Case{AF_INET, "127.0.0.1", false, "tcp4 0 0 127.0.0.1", "tcp4 0 0 127.0.0.1"},
          Case{AF_INET6, "::", false, "tcp46 0 0 *", "tcp46 0 0 *"},
          Case{AF_INET6, "::", true, "", "tcp6 0 0 *"},
          Case{AF_INET6, "::1", false, "", "tcp6 0 0 ::1"},
          Case{AF_INET6, "::ffff:127.0.0.1", false, "tcp4 0 0 127.0.0.1", "tcp4 0 0 127.0.0.1"}}) {
        Socket socket(test.family);
        socket.listenAt(test.address, test.onlyV6);
        auto line = [&](std::string begin) {
            return begin.empty() ? begin
                                 : begin + "." + std::to_string(socket.port()) + " *.* LISTEN\n";
        };
        EXPECT_EQ(listening(socket), line(test.inIPv4)) << test.address;
        EXPECT_EQ(listening(socket, SocketFamily::Any), line(test.inAny)) << test.address;
        EXPECT_EQ(established(socket), "");
        auto port = socket.port();
        socket.close();
        EXPECT_EQ(linesOf(port, SocketFamily::Any, SocketState::Listen), "");
    }
}

TEST_F(NetlinkSocketTableTest, ListsEstablishedConnections) {
    Socket both(AF_INET6);
    both.listenAt("::");
    auto port = std::to_string(both.port());

    // Over IPv4 the accepting end is an IPv6 socket with mapped addresses.
    Socket client(AF_INET);
    client.connectTo("127.0.0.1", both.port());
    auto server = both.acceptOne();
    auto peer = std::to_string(client.port());
    auto lines = established(client);
    EXPECT_NE(lines.find("tcp4 0 0 127.0.0.1." + peer + " 127.0.0.1." + port + " ESTABLISHED\n"),
              lines.npos);
    EXPECT_NE(lines.find("tcp4 0 0 127.0.0.1." + port + " 127.0.0.1." + peer + " ESTABLISHED\n"),
              lines.npos);
    EXPECT_EQ(established(client, SocketFamily::IPv4), lines);

    Socket client6(AF_INET6);
    client6.connectTo("::1", both.port());
    auto server6 = both.acceptOne();
    auto peer6 = std::to_string(client6.port());
    EXPECT_NE(established(client6).find("tcp6 0 0 ::1." + peer6 + " ::1." + port + " ESTABLISHED"),
              lines.npos);
    EXPECT_EQ(established(client6, SocketFamily::IPv4), "");

    // One end closed: CLOSE_WAIT and FIN_WAIT2 are no connections any more.
    client.close();
    EXPECT_EQ(linesOf(std::atoi(peer.c_str()), SocketFamily::Any, SocketState::Established), "");
}

TEST_F(NetlinkSocketTableTest, ListsMoreThanOneDatagramHolds) {
    Socket listener(AF_INET);
    listener.listenAt("127.0.0.1");
    std::vector<Socket> ends;
    for (int pair = 0; pair < 400; ++pair) {
        ends.emplace_back(AF_INET).connectTo("127.0.0.1", listener.port());
        ends.push_back(listener.acceptOne());
    }
    auto lines = established(listener);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 800);
}
