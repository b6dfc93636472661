#include "tests/server/GateFixture.h"

namespace zelvo::server {

namespace {

class GateTest : public GateFixture {};

TEST_F(GateTest, LetsInExactlyWhoWasMeant) {
    auto first = asking(1);
    auto second = asking(2);
    ASSERT_EQ(all<Question>().size(), 2U);
    const auto question = all<Question>()[1];
    EXPECT_EQ(question.viewer, all<Question>()[0].viewer);
    EXPECT_EQ(question.peer.address, (std::array<std::uint8_t, 4>{127, 0, 1, 1}));
    EXPECT_EQ(question.waiting, 1);
    gate->handle(Reply{question.viewer + 1, Answer::Control});
    turn();
    EXPECT_EQ(hear(first), "nothing");
    EXPECT_EQ(hear(second), "nothing") << "who is not asked about is not let in";

    gate->handle(Reply{question.viewer, Answer::Control});
    ASSERT_TRUE(server);
    say(server, Version38 + "\x01\x01\x00\x00\x00\x00init"s);
    say(first, "\x01"s + "\x04\x01\x00\x00\x00\x00\x00\x61"s);
    turn();
    EXPECT_EQ(hear(first), "\x00\x00\x00\x00init"s);
    EXPECT_EQ(hear(server), Version38 + "\x01\x01\x04\x01\x00\x00\x00\x00\x00\x61"s);

    // While the next question can be answered nobody inside may.
    gate->handle(QuestionShown{true});
    say(first, "\x05\x01\x00\x10\x00\x10"s);
    turn();
    EXPECT_EQ(hear(server), "nothing");
    EXPECT_FALSE(inputPasses);
    gate->handle(QuestionShown{false});
    gate->handle(SetRights{question.viewer, Rights::Watch});
    say(first, "\x05\x01\x00\x10\x00\x10\x03\x00\x00\x00\x00\x00\x00\x08\x00\x08"s);
    turn();
    EXPECT_EQ(hear(server), "\x03\x00\x00\x00\x00\x00\x00\x08\x00\x08"s);

    gate->handle(Disconnect{everybody});
    turn();
    EXPECT_EQ(hear(first), "end");
    EXPECT_EQ(hear(server), "end");
    EXPECT_TRUE(hear(second).starts_with("\x00\x00\x00\x01"s));
    EXPECT_EQ(all<Left>(), (std::vector{Left{question.viewer, Ending::Disconnected}}));
}

TEST_F(GateTest, TakesAQuestionBackWhoseViewerHasGone) {
    auto viewer = asking(1);
    auto next = asking(2);
    viewer.reset();
    turn();
    EXPECT_EQ(all<QuestionOver>().size(), 1U);
    EXPECT_EQ(all<Question>().back().peer.address[2], 2);
    gate->handle(Reply{all<Question>().back().viewer, Answer::Refuse});
    turn();
    EXPECT_EQ(hear(next).substr(0, 4), "\x00\x00\x00\x01"s);
}

TEST_F(GateTest, IsNotImpressedByAThousandConnections) {
    std::vector<FileDescriptor> strangers;
    for (int i = 0; i < 1000; ++i) {
        strangers.push_back(connect(i % 200, SOCK_NONBLOCK));
        if (i % 10 == 9)
            turn(1ms);
    }
    turn(200ms);
    EXPECT_TRUE(all<Question>().empty());
    strangers.clear();
    turn(200ms);
    auto viewer = asking(201);
    for (int i = 0; i < 50 && all<Question>().empty(); ++i)
        turn(100ms);
    EXPECT_EQ(all<Question>().size(), 1U) << "somebody who means it comes through afterwards";
}

}  // namespace

}  // namespace zelvo::server
