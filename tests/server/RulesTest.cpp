// The rules of the door, without a socket: handshake, messages, and who may go on.

#include <gtest/gtest.h>

#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/gate/Doorkeeper.h"
#include "server/gate/RfbHandshake.h"
#include "server/gate/ViewerMessages.h"

namespace zelvo::server {

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
namespace gate = platform::gate;

const auto Greeting = "RFB 003.008\n"s;
const auto Offer = "\x02\x13\x01"s;

TEST(RfbHandshake, SpeaksEveryVersionByteByByte) {
    using State = RfbHandshake::State;
    struct Case {
        std::string says, hears;
        State state;
        std::string admission, refusal;
    };
    const auto vencrypt = "RFB 003.008\n\x13\x00\x02\x00\x00\x01\x01"s;
    const std::vector<Case> cases{
        {"RFB 003.003\n", "", State::Done, "\x00\x00\x00\x01"s,
         "\x00\x00\x00\x00\x00\x00\x00\x02No"s},
        {"RFB 003.005\n", "", State::Done, "\x00\x00\x00\x01"s,
         "\x00\x00\x00\x00\x00\x00\x00\x02No"s},
        {"RFB 003.007\n\x01", Offer, State::Done, "", ""},
        {"RFB 003.008\n\x01", Offer, State::Done, "\x00\x00\x00\x00"s,
         "\x00\x00\x00\x01\x00\x00\x00\x02No"s},
        {"RFB 004.001\n\x01", Offer, State::Done, "\x00\x00\x00\x00"s,
         "\x00\x00\x00\x01\x00\x00\x00\x02No"s},
        {vencrypt, Offer + "\x00\x02\x00\x01\x00\x00\x01\x01\x01"s, State::WantsTls,
         "\x00\x00\x00\x00"s, ""},
        {"RFB 003.008\n\x02", Offer, State::Failed, "", ""},
        {"RFB 003.008\n\x13\x00\x01"s, Offer + "\x00\x02"s, State::Failed, "", ""},
        {"RFB 003.008\n\x13\x00\x02\x00\x00\x01\x02"s, Offer + "\x00\x02\x00\x01\x00\x00\x01\x01"s,
         State::Failed, "", ""},
        {"RFB 003.002\n", "", State::Failed, "", ""},
        {"RFB 00x.008\n", "", State::Failed, "", ""},
        {"GET ", "", State::Failed, "", ""},
    };
    for (const auto& [says, hears, state, admission, refusal] : cases) {
        SCOPED_TRACE(says);
        RfbHandshake handshake;
        std::string heard;
        for (std::size_t at = 0; at < says.size() && handshake.wanted() > 0; ++at)
            handshake.receive(says.substr(at, 1));
        heard = handshake.takeOutput();
        EXPECT_EQ(heard, Greeting + hears);
        ASSERT_EQ(handshake.state(), state);
        if (state == State::Failed)
            continue;
        EXPECT_EQ(handshake.refusal("No"), refusal);
        handshake.tlsIsUp();
        EXPECT_EQ(handshake.state(), State::Done);
        EXPECT_EQ(handshake.admission(), admission);
        EXPECT_EQ(handshake.wanted(), 0U) << "nothing of what follows is the handshake's";
    }
}

TEST(ViewerMessages, PassWholeOnesAndNoInputUnlessItMay) {
    const auto init = "\x01"s;
    const auto encodings = "\x02\x00\x00\x02\x00\x00\x00\x07\xff\xff\xff\x11"s;
    const auto request = "\x03\x01\x00\x00\x00\x00\x04\x00\x03\x00"s;
    const auto key = "\x04\x01\x00\x00\x00\x00\x00\x61"s;
    const auto pointer = "\x05\x01\x00\x10\x00\x10"s;
    const auto text = "\x06\x00\x00\x00\x00\x00\x00\x02hi"s;
    const auto extendedText = "\x06\x00\x00\x00\xff\xff\xff\xfc\x00\x00\x00\x01"s;
    const auto all = init + encodings + key + request + pointer + text + extendedText + request;
    for (bool passes : {true, false}) {
        const auto expected = passes ? all : init + encodings + request + request;
        for (std::size_t cut = 0; cut <= all.size(); ++cut) {
            ViewerMessages messages;
            messages.setInputPasses(passes);
            std::string passed;
            ASSERT_TRUE(messages.receive(all.substr(0, cut), passed));
            EXPECT_TRUE(expected.starts_with(passed));
            ASSERT_TRUE(messages.receive(all.substr(cut), passed));
            EXPECT_EQ(passed, expected) << "cut at " << cut;
        }
    }
    // What is unknown, and what is too long: more than 512 encodings, more than 1 MiB of text.
    for (const auto& wrong :
         {"\x07"s, "\xff\x00"s, "\x02\x00\x02\x01"s, "\x06\x00\x00\x00\x00\x10\x00\x01"s,
          "\x06\x00\x00\x00\x80\x00\x00\x00"s}) {
        ViewerMessages messages;
        std::string passed;
        EXPECT_FALSE(messages.receive(init + wrong, passed)) << wrong;
    }
}

class DoorkeeperTest : public testing::Test {
  protected:
    std::optional<Refusal> come(ViewerId viewer, std::uint8_t host, Proof proof = Proof::None) {
        EXPECT_TRUE(door.arrive(viewer, {10, 0, 0, host}, now).hasPlace);
        return door.ready(viewer, proof, now);
    }

    Doorkeeper door;
    Time now{1h};
};

TEST_F(DoorkeeperTest, AsksOneAfterTheOtherAndKeepsFewWaiting) {
    for (ViewerId viewer = 1; viewer <= 5; ++viewer)
        EXPECT_EQ(come(viewer, static_cast<std::uint8_t>(viewer)), std::nullopt);
    EXPECT_EQ(come(6, 6), Refusal::TooMany);
    EXPECT_EQ(door.asked(), 1U);
    EXPECT_EQ(door.waiting(), 4U);
    now += 20s;
    door.answered(true, now);
    EXPECT_EQ(door.asked(), 2U);
    // Its time begins with its question, not with its waiting.
    EXPECT_EQ(door.nextDeadline(), now + 60s);
    door.leave(2, now);
    EXPECT_EQ(door.asked(), 3U);
    now += 60s;
    using Overdue = std::vector<std::pair<ViewerId, Refusal>>;
    EXPECT_EQ(door.overdue(now), (Overdue{{3, Refusal::NotAnswered}}));
    EXPECT_EQ(door.asked(), 4U);
    EXPECT_EQ(door.refuseEverybody(true, now), (std::vector<ViewerId>{4, 5}));
    EXPECT_EQ(come(7, 7), Refusal::Everybody);
    EXPECT_EQ(door.asked(), std::nullopt);
}

TEST_F(DoorkeeperTest, ANoHoldsForLongerEachTime) {
    auto pause = 30s;
    for (int times = 0; times < 7; ++times) {
        EXPECT_EQ(come(1, 1), std::nullopt) << times;
        // Another of the same has waited meanwhile, and one of somebody else's.
        EXPECT_EQ(come(2, 1), std::nullopt);
        EXPECT_EQ(come(3, 3), std::nullopt);
        using Left = std::vector<std::pair<ViewerId, Refusal>>;
        EXPECT_EQ(door.answered(false, now), (Left{{1, Refusal::No}, {2, Refusal::TooSoon}}));
        EXPECT_EQ(door.asked(), 3U);
        door.leave(3, now);
        now += pause - 1s;
        EXPECT_EQ(come(1, 1), Refusal::TooSoon) << times;
        now += 1s;
        pause = std::min(pause * 2, std::chrono::seconds(600));
    }
    EXPECT_EQ(come(1, 1), std::nullopt);
    door.answered(true, now);
    EXPECT_EQ(come(1, 1), std::nullopt) << "whoever was let in once is forgiven";
    door.answered(true, now);
    // To ask and go, time and again, is no way around it.
    now += 60s;
    for (ViewerId viewer = 2; viewer <= 21; door.leave(viewer++, now))
        EXPECT_EQ(come(viewer, 2), std::nullopt) << viewer;
    EXPECT_EQ(come(22, 2), Refusal::TooMany);
    now += 1s;
    EXPECT_EQ(come(22, 2), std::nullopt);
}

TEST_F(DoorkeeperTest, HasFewPlacesAndNoneForLong) {
    EXPECT_TRUE(door.arrive(1, {10, 0, 0, 1}, now).hasPlace);
    for (ViewerId viewer = 2; viewer <= 4; ++viewer)
        EXPECT_TRUE(door.arrive(viewer, {10, 0, 0, 1}, now).hasPlace);
    EXPECT_FALSE(door.arrive(5, {10, 0, 0, 1}, now).hasPlace) << "four of one address";
    for (ViewerId viewer = 5; viewer <= 64; ++viewer)
        EXPECT_TRUE(
            door.arrive(viewer, {10, 0, 1, static_cast<std::uint8_t>(viewer)}, now).hasPlace);
    EXPECT_FALSE(door.arrive(65, {10, 0, 2, 1}, now).hasPlace);
    EXPECT_EQ(door.ready(1, Proof::None, now), std::nullopt);
    now += 10s;
    EXPECT_EQ(door.overdue(now).size(), 63U) << "but for the one whose handshake is over";
    EXPECT_TRUE(door.arrive(66, {10, 0, 2, 1}, now).hasPlace);
}

TEST_F(DoorkeeperTest, KeepsPlacesForThoseWithAProofAndForThoseWithout) {
    // Five strangers of two addresses are ready, and one of them asked about.
    for (ViewerId viewer = 1; viewer <= 5; ++viewer)
        EXPECT_EQ(come(viewer, viewer <= 4 ? 1 : 2), std::nullopt);
    EXPECT_EQ(come(6, 1), Refusal::TooMany) << "it may try for a proof, but has none";
    for (ViewerId viewer = 7; viewer <= 10; ++viewer)
        EXPECT_EQ(come(viewer, 1, Proof::Link), std::nullopt);
    EXPECT_EQ(come(11, 3, Proof::Link), Refusal::TooMany);
    EXPECT_EQ(door.asked(), 1U) << "no question is pulled away";
    EXPECT_EQ(door.waiting(), 8U);
    using Left = std::vector<std::pair<ViewerId, Refusal>>;
    Left all{{1, Refusal::No}};
    for (ViewerId viewer = 2; viewer <= 4; ++viewer)
        all.emplace_back(viewer, Refusal::TooSoon);
    EXPECT_EQ(door.answered(false, now), all) << "of the same address, and without a proof as well";
    EXPECT_EQ(door.asked(), 7U) << "before 5, who came first";
    EXPECT_EQ(come(12, 1), Refusal::TooSoon);
    EXPECT_EQ(door.admitOnlyProven(true, now), std::vector<ViewerId>{5});
    EXPECT_EQ(come(13, 3), Refusal::NoProof);
    EXPECT_EQ(door.answered(false, now).size(), 4U);
    EXPECT_EQ(come(14, 1, Proof::Link), Refusal::TooSoon);
}

TEST_F(DoorkeeperTest, GivesAPlaceHeldBySilenceToWhoComes) {
    for (ViewerId viewer = 1; viewer <= 64; ++viewer)
        EXPECT_TRUE(
            door.arrive(viewer, {10, 0, static_cast<std::uint8_t>(viewer / 4), 1}, now).hasPlace);
    now += 499ms;
    EXPECT_FALSE(door.arrive(65, {10, 1, 0, 1}, now).hasPlace);
    now += 1ms;
    door.isOpener(1);
    EXPECT_EQ(door.arrive(66, {10, 1, 0, 1}, now).pushedOut, 2U) << "before one who speaks as ours";
    EXPECT_EQ(door.arrive(67, {10, 0, 1, 1}, now).pushedOut, 4U) << "of the same address";
    // Who has seen digits and goes keeps the place taken.
    for (ViewerId viewer = 5; viewer <= 7; ++viewer) {
        door.seesDigits(viewer);
        door.leave(viewer, now);
    }
    door.seesDigits(67);
    EXPECT_FALSE(door.arrive(68, {10, 0, 1, 1}, now + 600ms).hasPlace);
    EXPECT_TRUE(door.arrive(69, {10, 0, 1, 1}, now + 10s).hasPlace);
}

TEST(GateMessage, IsWholeOrNone) {
    using namespace gate;
    const Peer peer{{192, 0, 2, 7}, 51234};
    const std::vector<Message> messages{
        Hello{},
        DesktopAsks{},
        DesktopWithdraws{},
        Listening{.port = 5900, .takesInput = false, .offersInput = true, .hasClipboard = false},
        Question{7, peer, true, 60, 4, "Ana", "012 345 678 901"},
        QuestionOver{7, Ending::NotAnswered},
        Inside{0x01020304, peer, false, Rights::Control, "", "", "2001:db8::7"},
        Left{7, Ending::NetworkDied, true},
        Reply{7, Answer::Watch},
        SetRights{7, Rights::Watch},
        Disconnect{everybody},
        RefuseEverybody{true},
        QuestionShown{false},
        Link{std::string(128, 'i'), {1, 2, 3}},
        AdmitOnlyLinkHolders{true},
        Relayed{40000, "192.0.2.7"},
    };
    for (const auto& message : messages) {
        auto bytes = encode(message);
        ASSERT_LE(bytes.size(), longestMessage);
        EXPECT_EQ(decode(bytes), message) << message.index();
        for (std::size_t size = 0; size < bytes.size(); ++size)
            EXPECT_FALSE(decode(std::span(bytes).first(size))) << message.index();
        auto longer = bytes;
        longer.push_back(std::byte{0});
        EXPECT_FALSE(decode(longer));
        bytes[0] = std::byte{messageVersion + 1};
        EXPECT_FALSE(decode(bytes)) << "another version";
    }
    auto noSuchAnswer = encode(Reply{7, Answer::Control});
    noSuchAnswer.back() = std::byte{3};
    EXPECT_FALSE(decode(noSuchAnswer));
    // A server that was taken over shows no text of its own either.
    for (const Message& wrong : std::vector<Message>{
             Question{7, peer, true, 60, 0, "A\nna", "012 345 678 901"},
             Question{7, peer, true, 60, 0, "Ana", "012 345 678 90x"},
             Inside{7, peer, true, Rights::Watch, "Ana", {}}, Link{"with space", {}},
             Relayed{40000, "someone"}, Relayed{0, "192.0.2.7"}})
        EXPECT_FALSE(decode(encode(wrong))) << wrong.index();
}

}  // namespace

}  // namespace zelvo::server
