// Those who have the link's key, at a real gate: in, out, back, and who only says so.

#include <gtest/gtest.h>

#include "tests/server/GateFixture.h"

namespace zelvo::server {

namespace {

using namespace platform::gate;
using namespace sealing;
using Place = Standing::Place;
using State = SealedLine::State;

const Link ours{"here", {1, 2, 3}};
const Link another{"here", {3, 2, 1}};

ChannelKey keyOf(const Link& link) {
    ShareLink share{link.identifier, {}};
    std::copy(link.key.begin(), link.key.end(), share.key.bytes().begin());
    return ChannelKey(share);
}

class SealedGateTest : public GateFixture {
  protected:
    struct Opener {
        FileDescriptor socket;
        SealedLine line;
        std::string said;
        std::string heard;

        std::optional<Standing> standing() const { return line.channel().standing(); }
        std::optional<Farewell> goodbye() const { return line.channel().goodbye(); }
    };

    SealedGateTest() { gate->handle(ours); }

    /// What an opener has to say and to hear, until nothing moves any more.
    void carry(Opener& opener) {
        for (int quiet = 0; quiet < 3; ++quiet) {
            const auto out = opener.line.takeOutput();
            say(opener.socket, out);
            opener.said += out;
            turn(3ms);
            for (auto in = hear(opener.socket); in != "nothing"; in = hear(opener.socket)) {
                quiet = 0;
                if (in == "end")
                    return opener.line.end();
                opener.line.receive(in);
                opener.heard += opener.line.takeData();
            }
        }
    }
    Opener open(int host, const Link& link = ours, const std::string& name = "Zoë",
                const std::optional<ReturnSecret>& back = {}) {
        Opener opener{connect(host), SealedLine::opener(keyOf(link), name, back), {}, {}};
        carry(opener);
        return opener;
    }
    Opener inside(int host, Answer answer = Answer::Control) {
        auto opener = open(host);
        gate->handle(Reply{all<Question>().back().viewer, answer});
        carry(opener);
        return opener;
    }
};

TEST_F(SealedGateTest, TakesOnlyOpenersFromARelayAndLimitsThemByWhereTheyAre) {
    const auto portOf = [](const FileDescriptor& socket) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    };
    // Known before anybody is heard, like what waits to be read of Zelvo.
    const auto relayed = [&](const std::string& origin) {
        auto socket = connect(relayedAddress[2]);
        gate->handle(Relayed{portOf(socket), origin});
        return socket;
    };
    // Whose word is missing, or was for somebody else, is no viewer of this computer.
    auto unknown = connect(relayedAddress[2]);
    gate->handle(Relayed{portOf(unknown), "192.0.2.7"});
    for (std::uint16_t port = 1; port <= 64; ++port)
        gate->handle(Relayed{port, "192.0.2.7"});
    turn();
    EXPECT_EQ(hear(unknown), "end");
    auto viewer = relayed("192.0.2.7");
    turn(150ms);
    EXPECT_EQ(hear(viewer), "nothing") << "no greeting";
    say(viewer, "RFB ");
    turn();
    EXPECT_EQ(hear(viewer), "end");

    // No other way of one network is left to somebody who had four.
    std::vector<FileDescriptor> crowd;
    for (auto host : {"1", "2", "3", "4"})
        crowd.push_back(relayed("2001:db8::"s + host));
    turn();
    EXPECT_EQ(hear(crowd[3]), "nothing");
    auto fifth = relayed("2001:db8::5");
    auto other = relayed("2001:db8:0:1::5");
    turn();
    EXPECT_EQ(hear(fifth), "end");
    Opener opener{std::move(other), SealedLine::opener(keyOf(ours), "Zoë"), {}, {}};
    carry(opener);
    ASSERT_EQ(all<Question>().size(), 1U);
    EXPECT_EQ(all<Question>()[0].origin, "2001:db8:0:1::5");
}

TEST_F(SealedGateTest, LetsInWhoHasTheLinkAndCarriesTheScreen) {
    auto opener = open(1);
    ASSERT_EQ(all<Question>().size(), 1U);
    const auto question = all<Question>()[0];
    EXPECT_EQ(question.name, "Zoë");
    EXPECT_EQ(question.digits, opener.line.channel().digits());
    EXPECT_TRUE(question.isEncrypted);
    EXPECT_EQ(opener.standing(), (Standing{Place::Asked, 60}));
    EXPECT_EQ(opener.heard, "") << "no greeting before a yes";

    gate->handle(Reply{question.viewer, Answer::Watch});
    carry(opener);
    EXPECT_EQ(opener.standing(), (Standing{Place::Watching}));
    EXPECT_EQ(opener.heard, Version38 + "\x01\x01\x00\x00\x00\x00"s);
    EXPECT_TRUE(opener.line.channel().returnSecret());
    EXPECT_EQ(all<Inside>().back().digits, question.digits);
    say(server, Version38 + "\x01\x01\x00\x00\x00\x00init"s + std::string(100'000, 'p'));
    const auto key = "\x04\x01\x00\x00\x00\x00\x00\x61"s;
    opener.line.send(Version38 + "\x01\x01"s + key);
    carry(opener);
    EXPECT_TRUE(opener.heard.substr(18) == "init" + std::string(100'000, 'p'));
    EXPECT_EQ(hear(server), Version38 + "\x01\x01"s) << "who watches presses no key";
    gate->handle(SetRights{question.viewer, Rights::Control});
    carry(opener);
    EXPECT_EQ(opener.standing(), (Standing{Place::Controlling}));
    opener.line.send(key);
    carry(opener);
    EXPECT_EQ(hear(server), key);
    // A goodbye need not wait for all of the screen that an opener has not taken yet.
    for (int parts = 0; parts < 80; ++parts) {
        say(server, std::string(200'000, 'p'));
        turn(1ms);
    }
    gate->handle(Disconnect{question.viewer});
    carry(opener);
    EXPECT_EQ(opener.goodbye(), Farewell::Disconnected);
    EXPECT_LT(opener.heard.size(), 12'000'000U);
    EXPECT_EQ(all<Left>().back(), (Left{question.viewer, Ending::Disconnected}));
    // Who is gone is let go of in the turn after that.
    turn();
    EXPECT_EQ(hear(server), "end");
}

TEST_F(SealedGateTest, TurnsOthersAwayBeforeAnythingIsAsked) {
    auto stranger = open(1, another);
    EXPECT_EQ(stranger.line.failure(), SealedLine::Failure::KeyRefused);
    auto honest = open(2);
    auto replay = connect(3);
    say(replay, honest.said);
    turn();
    EXPECT_TRUE(hear(replay).ends_with("\x88\x02\x0f\xa1"));
    // Cut anywhere, an honest handshake raises no question of its own either.
    for (std::size_t cut = 0; cut < honest.said.size(); cut += 17) {
        auto socket = connect(static_cast<int>(4 + cut));
        say(socket, honest.said.substr(0, cut));
        turn(12ms);
    }
    // Nor does the screen hear anything from who was not let in.
    honest.line.send("RFB 003.008\n");
    carry(honest);
    EXPECT_EQ(honest.line.state(), State::Failed);
    EXPECT_EQ(all<Question>().size(), 1U);
    EXPECT_EQ(all<QuestionOver>().size(), 1U);
}

TEST_F(SealedGateTest, GreetsWhoWaitsAndHearsAnOpenerAfterThat) {
    auto viewer = connect(1);
    turn(60ms);
    EXPECT_EQ(hear(viewer), "nothing");
    turn(80ms);
    EXPECT_EQ(hear(viewer), Version38);
    Opener slow{connect(2), SealedLine::opener(keyOf(ours), "Zoë"), {}, {}};
    turn(140ms);
    carry(slow);
    EXPECT_EQ(slow.standing(), (Standing{Place::Asked, 60}));
    auto eager = connect(3);
    say(eager, Version38 + "\x01");
    turn();
    EXPECT_TRUE(hear(eager).starts_with(Version38)) << "who speaks first waits for nothing";
    // Behind a viewer without a proof somebody with one is asked about next, before who came first.
    gate->handle(Disconnect{everybody});
    carry(slow);
    EXPECT_EQ(slow.goodbye(), Farewell::Refused);
    auto asked = asking(4), second = asking(5);
    auto proven = open(6);
    EXPECT_EQ(proven.standing(), Standing{Place::InLine});
    EXPECT_EQ(all<Question>().back().peer.address[2], 4);
    gate->handle(Reply{all<Question>().back().viewer, Answer::Refuse});
    carry(proven);
    EXPECT_EQ(all<Question>().back().name, "Zoë");
    EXPECT_EQ(proven.standing(), (Standing{Place::Asked, 60}));
    gate->handle(AdmitOnlyLinkHolders{true});
    turn();
    EXPECT_TRUE(hear(second).starts_with("\x00\x00\x00\x01"s));
    gate->handle(RefuseEverybody{true});
    carry(proven);
    EXPECT_EQ(proven.goodbye(), Farewell::Everybody);
}

TEST_F(SealedGateTest, LetsBackInOnceWhoLostTheLine) {
    auto opener = inside(1);
    const auto secret = opener.line.channel().returnSecret();
    const auto viewer = all<Inside>().back().viewer;
    gate->handle(SetRights{viewer, Rights::Watch});
    // The host has not noticed yet.
    auto back = open(2, ours, "Eve", secret);
    EXPECT_TRUE(back.line.channel().isBack());
    EXPECT_EQ(back.standing(), Standing{Place::Watching}) << "the last rights";
    EXPECT_EQ(all<Inside>().back().name, "Zoë") << "who was asked about";
    EXPECT_EQ(all<Left>(), (std::vector{Left{viewer, Ending::NetworkDied}}));
    EXPECT_EQ(all<Question>().size(), 1U);
    auto twice = open(3, ours, "Zoë", secret);
    EXPECT_FALSE(twice.line.channel().isBack());
    EXPECT_EQ(all<Question>().size(), 2U) << "used once";
    twice.socket.reset();

    const auto newer = back.line.channel().returnSecret();
    back.socket.reset();
    turn();
    auto again = open(4, ours, "Zoë", newer);
    EXPECT_TRUE(again.line.channel().isBack());
    const auto last = again.line.channel().returnSecret();
    again.line.sayGoodbye(Farewell::Left);
    carry(again);
    EXPECT_EQ(all<Left>().back().ending, Ending::ViewerLeft);
    auto afterGoodbye = open(5, ours, "Zoë", last);
    EXPECT_EQ(afterGoodbye.standing(), (Standing{Place::Asked, 60}));
    gate->handle(Reply{all<Question>().back().viewer, Answer::Control});
    carry(afterGoodbye);
    const auto cut = afterGoodbye.line.channel().returnSecret();
    afterGoodbye.socket.reset();
    turn();
    gate->handle(Disconnect{everybody});
    EXPECT_FALSE(open(6, ours, "Zoë", cut).line.channel().isBack()) << "nor after a disconnection";
    auto present = inside(7);
    const auto held = present.line.channel().returnSecret();
    gate->handle(Disconnect{all<Inside>().back().viewer});
    EXPECT_FALSE(open(8, ours, "Zoë", held).line.channel().isBack());
    // A browser whose page was closed.
    auto closed = inside(9);
    const auto unused = closed.line.channel().returnSecret();
    ASSERT_TRUE(unused);
    ::send(closed.socket.get(), "\x88\x82\0\0\0\0\x03\xe9", 8, MSG_NOSIGNAL);
    turn();
    EXPECT_EQ(all<Left>().back().ending, Ending::ViewerLeft);
    EXPECT_FALSE(open(10, ours, "Zoë", unused).line.channel().isBack());
    // Whose screen takes nothing any more.
    auto unheard = inside(11);
    unheard.line.send(Version38 + "\1\1");
    for (int texts = 0; texts < 3; ++texts)
        unheard.line.send("\6\0\0\0\0\3\r@"s + std::string(200'000, 't'));
    carry(unheard);
    unheard.line.sayGoodbye(Farewell::Left);
    say(unheard.socket, unheard.line.takeOutput());
    ::shutdown(unheard.socket.get(), SHUT_WR);
    turn();
    EXPECT_EQ(all<Left>().back().ending, Ending::ViewerLeft);

    // A minute, whoever looks after it when.
    ReplayCache replays;
    for (const bool looksAfter : {true, false}) {
        for (const auto absence : {59'999ms, 60'000ms}) {
            Returns returns;
            const auto given = returns.enter(1, Rights::Watch, "Zoë");
            returns.lose(1, Returns::Time{});
            auto line = SealedLine::opener(keyOf(ours), "Zoë", given);
            auto host = SealedLine::host(keyOf(ours), replays);
            for (int turn = 0; turn < 3; ++turn) {
                host.receive(line.takeOutput());
                line.receive(host.takeOutput());
            }
            EXPECT_EQ(returns.nextDeadline(), Returns::Time{} + 60s);
            if (looksAfter)
                returns.tick(Returns::Time{} + absence);
            EXPECT_EQ(returns.take(host.channel(), Returns::Time{} + absence).has_value(),
                      absence < 60s);
        }
    }
}

TEST_F(SealedGateTest, HeedsWhatCrossesALostLineOrAReturn) {
    auto lost = inside(1);
    const auto viewer = all<Inside>().back().viewer;
    const auto secret = lost.line.channel().returnSecret();
    lost.socket.reset();
    turn();
    EXPECT_EQ(all<Left>().back(), (Left{viewer, Ending::NetworkDied, true}));
    gate->handle(SetRights{viewer, Rights::Watch});
    auto back = open(2, ours, "Zoë", secret);
    EXPECT_EQ(back.standing(), Standing{Place::Watching});
    EXPECT_EQ(all<Left>().back(), (Left{viewer, Ending::NetworkDied}));
    const auto newer = back.line.channel().returnSecret();
    gate->handle(Disconnect{viewer});
    carry(back);
    EXPECT_EQ(back.goodbye(), Farewell::Disconnected);
    EXPECT_FALSE(open(3, ours, "Zoë", newer).line.channel().isBack());
    auto cut = inside(4);
    cut.socket.reset();
    turn();
    gate->handle(Disconnect{all<Inside>().back().viewer});
    EXPECT_EQ(all<Left>().back().ending, Ending::Disconnected);
    EXPECT_FALSE(open(5, ours, "Zoë", cut.line.channel().returnSecret()).line.channel().isBack());
}

TEST_F(SealedGateTest, EndsWhatAnOldLinkOpenedAndNothingElse) {
    auto plain = asking(1);
    gate->handle(Reply{all<Question>().back().viewer, Answer::Control});
    auto opener = inside(2);
    auto lost = inside(3);
    const auto secret = lost.line.channel().returnSecret();
    lost.socket.reset();
    auto waiting = open(4);
    gate->handle(ours);
    carry(opener);
    EXPECT_EQ(opener.goodbye(), std::nullopt) << "the same link, told again";
    gate->handle(another);
    carry(opener);
    carry(waiting);
    EXPECT_EQ(opener.goodbye(), Farewell::LinkEnded);
    EXPECT_EQ(waiting.goodbye(), Farewell::LinkEnded);
    EXPECT_EQ(all<QuestionOver>().size(), 1U);
    EXPECT_NE(hear(plain), "end");
    EXPECT_EQ(open(5).line.failure(), SealedLine::Failure::KeyRefused);
    auto newer = open(6, another, "Zoë", secret);
    EXPECT_EQ(newer.standing(), (Standing{Place::Asked, 60}));
    gate->handle(Link{});
    carry(newer);
    EXPECT_EQ(newer.goodbye(), Farewell::LinkEnded);
    EXPECT_EQ(open(7, Link{}).line.failure(), SealedLine::Failure::KeyRefused) << "no link, no key";
    gate->handle(ours);
    auto last = inside(8);
    gate.reset();
    last.line.receive(hear(last.socket));
    EXPECT_EQ(last.goodbye(), Farewell::ScreenEnded);
}

}  // namespace

}  // namespace zelvo::server
