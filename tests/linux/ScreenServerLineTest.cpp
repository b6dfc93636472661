#include "platform/linux/screen_sharing/ScreenServerLine.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QCoreApplication>
#include <filesystem>

#include "platform/linux/screen_sharing/AdmittedSockets.h"
#include "tests/support/FakeHost.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::platform {

namespace {

/// Plays the screen server.
class Server {
  public:
    explicit Server(const std::string& path)
        : socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        isConnected = ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address),
                                sizeof address) == 0;
        settle();
    }
    static void settle() {
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
    }
    void say(const gate::Message& message) {
        auto bytes = gate::encode(message);
        ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        settle();
    }
    /// What was said since; nothing at the end of the connection, too.
    std::vector<gate::Message> heard() {
        std::vector<gate::Message> messages;
        std::array<std::byte, 64> packet;
        ssize_t size = 0;
        while ((size = ::recv(socket.get(), packet.data(), packet.size(), 0)) > 0)
            messages.push_back(
                gate::decode(std::span(packet).first(static_cast<std::size_t>(size))).value());
        hasEnded = size == 0;
        return messages;
    }

    FileDescriptor socket;
    bool isConnected = false;
    bool hasEnded = false;
};

class ScreenServerLineTest : public testing::Test {
  protected:
    ScreenServerLineTest() {
        line.ended = [this] { ++endings; };
    }

    int argumentCount = 1;
    std::string name = "test";
    char* arguments[2] = {name.data(), nullptr};
    QCoreApplication application{argumentCount, arguments};
    const gate::Peer anna{{192, 0, 2, 7}, 51234};
    const gate::Peer bert{{192, 0, 2, 8}, 51235};
    test::TemporaryFolder folder;
    test::RecordingLog log;
    ScreenServerLine line{log, folder / "zelvo"};
    const std::string path = folder / "zelvo/screen-sharing";
    int endings = 0;
};

}  // namespace

TEST_F(ScreenServerLineTest, TellsWhoAsksAndWhoIsIn) {
    Server server(path);
    EXPECT_EQ(server.heard(), std::vector<gate::Message>{gate::Hello{}});
    server.say(gate::Hello{});
    EXPECT_FALSE(line.serverListens());
    server.say(gate::Listening{5900});
    EXPECT_TRUE(line.serverListens());

    server.say(gate::Question{1, anna, true, 60, 2});
    auto question = line.question().value();
    ASSERT_TRUE(question);
    EXPECT_EQ(question->address, "192.0.2.7");
    EXPECT_TRUE(question->isEncrypted);
    EXPECT_EQ(question->waiting, 2U);
    EXPECT_FALSE(line.isInside(anna)) << "asked about is not in";
    line.answer(question->id + 1, ViewerAnswer::Control);
    EXPECT_TRUE(server.heard().empty()) << "nobody asks who has that number";
    line.answer(question->id, ViewerAnswer::Watch);
    EXPECT_EQ(server.heard(), (std::vector<gate::Message>{gate::Reply{1, gate::Answer::Watch}}));
    server.say(gate::Inside{1, anna, true, gate::Rights::Watch});
    EXPECT_FALSE(line.question().value());
    EXPECT_TRUE(line.isInside(anna));
    EXPECT_FALSE(line.isInside(bert));
    ASSERT_EQ(line.inside().value().size(), 1U);
    const auto viewer = line.inside().value()[0];
    line.setRights(viewer.id, ViewerRights::Control);
    line.disconnect(viewer.id);
    line.setQuestionShown(true);
    line.setQuestionShown(true);
    EXPECT_EQ(server.heard(),
              (std::vector<gate::Message>{gate::SetRights{1, gate::Rights::Control},
                                          gate::Disconnect{1}, gate::QuestionShown{true}}));
    server.say(gate::Inside{1, anna, true, gate::Rights::Control});
    EXPECT_EQ(line.inside().value()[0].rights, ViewerRights::Control);
    EXPECT_EQ(line.inside().value()[0].since, viewer.since);
    server.say(gate::Question{2, bert, false, 60, 0, "", "", "2001:db8::7"});
    EXPECT_TRUE(line.question().value()->isRelayed && !viewer.isRelayed);
    server.say(gate::QuestionOver{1, gate::Ending::ViewerLeft});
    EXPECT_TRUE(line.question().value()) << "another's";
    server.say(gate::Left{1, gate::Ending::NetworkDied, true});
    EXPECT_TRUE(line.inside().value().empty());
    EXPECT_EQ(line.away().value().size(), 1U);
    server.heard();
    line.disconnect(viewer.id);
    EXPECT_EQ(server.heard(), std::vector<gate::Message>{gate::Disconnect{1}});
    server.say(gate::Left{1, gate::Ending::Disconnected});
    EXPECT_TRUE(line.away().value().empty());

    // The next server counts from one again; who asks there is somebody else.
    const auto berts = line.question().value()->id;
    line.setRefusesEverybody(true);
    line.hangUp();
    EXPECT_EQ(endings, 1);
    EXPECT_FALSE(line.serverListens() || line.question().value());
    server.heard();
    EXPECT_TRUE(server.hasEnded);
    Server next(path);
    next.say(gate::Hello{});
    EXPECT_EQ(next.heard(),
              (std::vector<gate::Message>{gate::Hello{}, gate::RefuseEverybody{true}}));
    next.say(gate::Question{1, anna, true, 60, 0});
    EXPECT_GT(line.question().value()->id, berts);
}

TEST_F(ScreenServerLineTest, HangsUpOnWhatIsNoServerOfOurs) {
    for (const std::string& rubbish : {std::string("rubbish"), std::string(4000, 'x')}) {
        Server server(path);
        server.say(gate::Hello{});
        ::send(server.socket.get(), rubbish.data(), rubbish.size(), MSG_NOSIGNAL);
        Server::settle();
        server.heard();
        EXPECT_TRUE(server.hasEnded);
    }
    Server hasty(path);
    hasty.say(gate::Listening{5900});
    EXPECT_FALSE(line.serverListens()) << "it has not said hello";
    {
        Server server(path);
        server.say(gate::Hello{});
        server.say(gate::Listening{5900});
        Server second(path);
        second.say(gate::Hello{});
        second.heard();
        EXPECT_TRUE(second.hasEnded) << "one at a time";
        EXPECT_TRUE(line.serverListens());
    }
    Server::settle();
    EXPECT_FALSE(line.serverListens()) << "it has ended";

    // Somebody else could look in.
    ::mkdir((folder / "open").c_str(), 0755);
    ::chmod((folder / "open").c_str(), 0755);
    ScreenServerLine open(log, folder / "open");
    EXPECT_FALSE(Server(folder / "open/screen-sharing").isConnected);
    ScreenServerLine far(log, folder / std::string(200, 'a'));
    EXPECT_EQ(log.lines.size(), 4U) << "a line for each piece of rubbish and each useless folder";
}

TEST_F(ScreenServerLineTest, ListsWhoIsNotInAsConnectingStill) {
    test::FakeSocketTable sockets;
    test::FakeServicesDatabase services;
    Server server(path);
    server.say(gate::Hello{});
    AdmittedSockets admitted(sockets, services,
                             {.areKnown = [this] { return line.serverIsThere(); },
                              .isInside = [this](auto& peer) { return line.isInside(peer); }});
    const std::string others =
        "tcp4 0 0 *.5900 *.* LISTEN\n"
        "tcp4 0 0 192.0.2.1.22 192.0.2.8.51235 ESTABLISHED\n";
    const std::string alike =
        "tcp4 0 0 192.0.2.1.22 192.0.2.8.5900 ESTABLISHED\n"
        "tcp4 0 0 192.0.2.1.45900 192.0.2.7.443 ESTABLISHED\n";
    const std::string theirs =
        "tcp4 0 0 192.0.2.1.5900 192.0.2.7.51234 ESTABLISHED\n"
        "tcp4 0 0 192.0.2.7.51234 192.0.2.1.5900 ESTABLISHED\n";
    const std::string justMade = "tcp4 0 0 127.0.0.1.51234 127.0.0.1.5900 ";
    sockets.listing = justMade + "ESTABLISHED\n";
    EXPECT_EQ(*admitted.tcpSockets(SocketFamily::IPv4, SocketState::Established).text,
              justMade + "SYN_RCVD\n");
    sockets.listing = others + theirs + alike;
    const auto kept = others + theirs +
                      "tcp4 0 0 192.0.2.1.22 192.0.2.8.5900 SYN_RCVD\n"
                      "tcp4 0 0 192.0.2.1.45900 192.0.2.7.443 SYN_RCVD\n";
    auto listed = [&] {
        return *admitted.tcpSockets(SocketFamily::IPv4, SocketState::Established).text;
    };
    EXPECT_EQ(listed(), others +
                            "tcp4 0 0 192.0.2.1.5900 192.0.2.7.51234 SYN_RCVD\n"
                            "tcp4 0 0 192.0.2.7.51234 192.0.2.1.5900 SYN_RCVD\n" +
                            kept.substr((others + theirs).size()));
    server.say(gate::Inside{1, anna, true, gate::Rights::Watch});
    EXPECT_EQ(listed(), kept);
    server.say(gate::Left{1, gate::Ending::ViewerLeft});
    EXPECT_NE(listed(), kept);
    line.hangUp();
    EXPECT_EQ(listed(), others + theirs + alike) << "nobody knows";
}

}  // namespace zelvo::platform
