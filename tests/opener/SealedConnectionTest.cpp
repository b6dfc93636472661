// The real line over loopback, with a host that the test plays, honestly and otherwise.

#include "opener/channel/SealedConnection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "sealing/SealedLine.h"
#include "tests/support/Socket.h"
#include "tests/support/WaitingQueue.h"

namespace zelvo::opener {
namespace {

using namespace std::chrono_literals;
using sealing::SealedLine;
using Place = sealing::Standing::Place;

sealing::ShareLink link(const std::string& key) {
    return std::get<sealing::ShareLink>(sealing::parseLink("zelvo://pc#" + key));
}
const std::string OurKey = "AAAAAAAAAAAAAAAAAAAAAA";
const std::string OtherKey = "BAAAAAAAAAAAAAAAAAAAAA";

class SealedConnectionTest : public testing::Test {
  protected:
    void open(SealedConnection::Patience patience = {}) {
        line = std::make_unique<SealedConnection>(
            queue, HostLine::Target{"127.0.0.1", port, sealing::ChannelKey(link(OurKey)), "Ben"},
            HostLine::Listener{[this](const auto& text) { digits = text; },
                               [this](const auto& told) { standing = told; }, [] {},
                               [this](auto descriptor) { rfb = std::move(descriptor); },
                               [this](const auto& how) { ending = how; }},
            patience);
    }
    /// Talks as the host until the condition holds or the opener is gone.
    void talk(const std::function<bool()>& condition) {
        while (!condition()) {
            peer.send(host.takeOutput());
            const auto bytes = peer.receive();
            if (bytes.empty())
                return host.end();
            host.receive(bytes);
        }
        peer.send(host.takeOutput());
    }
    void letProve() {
        open();
        peer = listening.accept();
        talk([this] { return host.state() != SealedLine::State::Proving; });
        ASSERT_TRUE(queue.runUntil([this] { return !digits.empty(); }));
    }
    LineEnd end() {
        EXPECT_TRUE(queue.runUntil([this] { return ending.has_value(); }));
        return ending.value_or(LineEnding{}).end;
    }

    test::WaitingQueue queue;
    test::Socket listening = std::move(test::Socket().bind());
    const std::uint16_t port = static_cast<std::uint16_t>(listening.port());
    test::Socket peer;
    sealing::ReplayCache replays;
    SealedLine host = SealedLine::host(sealing::ChannelKey(link(OurKey)), replays);
    std::string digits;
    std::optional<sealing::Standing> standing;
    platform::FileDescriptor rfb;
    std::optional<LineEnding> ending;
    std::unique_ptr<SealedConnection> line;
};

TEST_F(SealedConnectionTest, CarriesASessionUntilTheHostsGoodbye) {
    letProve();
    EXPECT_EQ(digits, host.channel().digits());
    host.tell({Place::Watching, 0});
    host.send("RFB 003.008\n");
    peer.send(host.takeOutput());
    ASSERT_TRUE(queue.runUntil([this] { return bool{rfb}; }));
    EXPECT_EQ(standing->place, Place::Watching);
    char greeting[13]{};
    EXPECT_EQ(::recv(rfb.get(), greeting, 12, MSG_WAITALL), 12);
    EXPECT_STREQ(greeting, "RFB 003.008\n");

    // More than waits between the two, and as much back.
    std::string much(2'000'000, '\0');
    for (std::size_t at = 0; at < much.size(); ++at)
        much[at] = static_cast<char>(at * 7 % 251);
    std::thread picture([&] {
        host.send(much);
        peer.send(host.takeOutput());
    });
    const timeval patience{.tv_sec = 5, .tv_usec = 0};
    ::setsockopt(rfb.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    std::string shown(much.size(), '\0');
    EXPECT_EQ(::recv(rfb.get(), shown.data(), shown.size(), MSG_WAITALL),
              static_cast<ssize_t>(much.size()));
    picture.join();
    EXPECT_TRUE(shown == much);
    std::thread viewer([&] { ::send(rfb.get(), much.data(), much.size(), MSG_NOSIGNAL); });
    std::string got;
    talk([&] {
        got += host.takeData();
        return got.size() >= much.size();
    });
    viewer.join();
    EXPECT_TRUE(got == much);

    host.sayGoodbye(sealing::Farewell::Disconnected);
    peer.send(host.takeOutput());
    EXPECT_EQ(end(), LineEnd::Goodbye);
    EXPECT_EQ(ending->farewell, sealing::Farewell::Disconnected);
    EXPECT_EQ(::recv(rfb.get(), greeting, 1, 0), 0);
}

TEST_F(SealedConnectionTest, SaysGoodbyeWhenItIsLeft) {
    letProve();
    std::thread leaving([this] { line.reset(); });
    talk([this] { return host.channel().goodbye().has_value(); });
    talk([this] { return host.isOver(); });
    leaving.join();
    EXPECT_EQ(host.channel().goodbye(), sealing::Farewell::Left);
    EXPECT_FALSE(ending);
}

TEST_F(SealedConnectionTest, TellsACutFromALie) {
    letProve();
    const sealing::ReturnSecret secret;
    host.giveReturnSecret(secret);
    peer.send(host.takeOutput());
    peer.close();
    EXPECT_EQ(end(), LineEnd::Cut);
    EXPECT_TRUE(ending->returnSecret);

    ending.reset();
    digits.clear();
    host = SealedLine::host(sealing::ChannelKey(link(OurKey)), replays);
    letProve();
    peer.send(std::string("\x82\x20", 2) + std::string(32, '?'));
    EXPECT_EQ(end(), LineEnd::Broken);
    EXPECT_FALSE(ending->returnSecret);
}

TEST_F(SealedConnectionTest, NamesWhoeverDoesNotProveToBeTheHost) {
    const std::string upgrade = "HTTP/1.1 101 Switching Protocols\r\n";
    const struct {
        LineEnd end;
        std::function<void()> play;
    } others[]{
        {LineEnd::Silent, [] {}},
        {LineEnd::Silent, [this] { peer.close(); }},
        {LineEnd::NotOurs, [this] { peer.send("HTTP/1.1 200 OK\r\n\r\n"); }},
        {LineEnd::NotOurs, [this] { peer.send("RFB 003.008\nRFB 003.008\n"); }},
        {LineEnd::KeyRefused,
         [this] {
             host = SealedLine::host(sealing::ChannelKey(link(OtherKey)), replays);
             talk([this] { return host.isOver(); });
         }},
        {LineEnd::NotTheHost,
         [this] {
             sealing::UpgradeRequestReader head;
             const auto request = peer.receive();
             std::string_view bytes = request;
             head.receive(bytes);
             peer.send(head.takeOutput());
             peer.send(std::string("\x82\x50", 2) + std::string(80, '?'));
         }},
    };
    for (const auto& [expected, play] : others) {
        ending.reset();
        open({.proving = 300ms});
        peer = listening.accept();
        play();
        EXPECT_EQ(end(), expected);
        EXPECT_TRUE(digits.empty());
    }
    listening.close();
    ending.reset();
    open();
    EXPECT_EQ(end(), LineEnd::Refused);
}

}  // namespace
}  // namespace zelvo::opener
