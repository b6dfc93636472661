#include "platform/linux/machine/NetlinkSocketTable.h"

#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>

#include <sstream>

#include "tests/support/Socket.h"

using namespace zelvo::platform;
using zelvo::test::Socket;

namespace {

class NetlinkSocketTableTest : public testing::Test {
  protected:
    /// The lines that name the port, each with its end.
    std::string linesOf(int port, SocketFamily family, SocketState state) {
        auto listing = table.tcpSockets(family, state);
        EXPECT_TRUE(listing.text) << listing.error;
        std::istringstream text(listing.text.value_or(""));
        std::string found;
        for (std::string line; std::getline(text, line);) {
            if ((line + " ").find('.' + std::to_string(port) + ' ') != line.npos)
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
        if (test.family == AF_INET6)
            socket.setOnlyV6(test.onlyV6);
        socket.bind(0, test.address);
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
    both.setOnlyV6(false);
    both.bind(0, "::");
    auto port = std::to_string(both.port());

    // Over IPv4 the accepting end is an IPv6 socket with mapped addresses.
    Socket client;
    EXPECT_TRUE(client.connect(both.port()));
    auto server = both.accept();
    auto peer = std::to_string(client.port());
    auto lines = established(client);
    const auto ours = "127.0.0.1." + peer, theirs = "127.0.0.1." + port;
    for (const auto& ends : {ours + " " + theirs, theirs + " " + ours})
        EXPECT_NE(lines.find("tcp4 0 0 " + ends + " ESTABLISHED\n"), lines.npos) << ends;
    EXPECT_EQ(established(client, SocketFamily::IPv4), lines);

    Socket client6(AF_INET6);
    EXPECT_TRUE(client6.connect(both.port(), "::1"));
    auto server6 = both.accept();
    auto peer6 = std::to_string(client6.port());
    EXPECT_NE(established(client6).find("tcp6 0 0 ::1." + peer6 + " ::1." + port + " ESTABLISHED"),
              lines.npos);
    EXPECT_EQ(established(client6, SocketFamily::IPv4), "");

    // One end closed: CLOSE_WAIT and FIN_WAIT2 are no connections any more.
    client.close();
    EXPECT_EQ(linesOf(std::atoi(peer.c_str()), SocketFamily::Any, SocketState::Established), "");
}

TEST_F(NetlinkSocketTableTest, AsksAnewWhatWasInterrupted) {
    struct {
        nlmsghdr socketHeader;
        inet_diag_msg socket;
        nlmsghdr doneHeader;
    } answer{};
    answer.socketHeader.nlmsg_len = sizeof answer.socketHeader + sizeof answer.socket;
    answer.socketHeader.nlmsg_type = TCPDIAG_GETSOCK;
    answer.socket.idiag_family = AF_INET;
    answer.doneHeader.nlmsg_len = sizeof answer.doneHeader;
    std::vector<FileDescriptor> kernels;
    int interruptions = 0;
    // A kernel that has answered the question to come, in two parts.
    auto open = [&](int) {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        kernels.emplace_back(ends[1]);
        for (bool isLast : {false, true}) {
            bool isInterrupted = isLast && static_cast<int>(kernels.size()) <= interruptions;
            answer.socket.id.idiag_sport = htons(static_cast<std::uint16_t>(kernels.size()));
            answer.doneHeader.nlmsg_type = isLast ? NLMSG_DONE : NLMSG_NOOP;
            answer.doneHeader.nlmsg_flags = isInterrupted ? NLM_F_DUMP_INTR : 0;
            EXPECT_EQ(::send(ends[1], &answer, sizeof answer, 0), sizeof answer);
        }
        return FileDescriptor(ends[0]);
    };
    interruptions = 2;
    EXPECT_EQ(NetlinkSocketTable(open).tcpSockets(SocketFamily::Any, SocketState::Listen).text,
              "tcp4 0 0 *.3 *.* LISTEN\ntcp4 0 0 *.3 *.* LISTEN\n");
    interruptions = 100;
    kernels.clear();
    EXPECT_EQ(NetlinkSocketTable(open).tcpSockets(SocketFamily::Any, SocketState::Listen).text,
              std::nullopt);
    EXPECT_EQ(kernels.size(), 5U);
}

TEST_F(NetlinkSocketTableTest, ListsMoreThanOneDatagramHolds) {
    Socket listener;
    listener.bind();
    std::vector<Socket> ends;
    for (int pair = 0; pair < 400; ++pair) {
        EXPECT_TRUE(ends.emplace_back().connect(listener.port()));
        ends.push_back(listener.accept());
    }
    auto lines = established(listener);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 800);
}
