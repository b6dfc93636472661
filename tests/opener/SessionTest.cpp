#include "opener/session/Session.h"

#include <gtest/gtest.h>

#include <set>

#include "opener/session/SessionLines.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "tests/support/ManualLoop.h"

namespace zelvo::opener {
namespace {

using namespace std::chrono_literals;
using Place = sealing::Standing::Place;

HostFacts somewhere() {
    HostFacts facts;
    facts.name = "pc";
    facts.address = "192.0.2.7";
    return facts;
}

TEST(Ending, EachHasWordsOfItsOwn) {
    const auto table =
        *platform::PlistReader("/").dictionaryWithContentsOfFile(ZELVO_ENGLISH_STRINGS);
    std::set<std::string_view> words;
    for (int number = 0; number <= static_cast<int>(Ending::Cut); ++number) {
        const auto& texts = textsOf(static_cast<Ending>(number));
        EXPECT_EQ(texts.ending, static_cast<Ending>(number));
        EXPECT_TRUE(words.insert(texts.word).second) << texts.word;
        for (const auto* key : {texts.title, texts.sentence})
            EXPECT_TRUE(table.contains(key)) << key;
    }
}

class SessionTest : public testing::Test, public FactsSource {
  protected:
    struct Line final : HostLine {
        explicit Line(SessionTest& test) : test(test) {}
        ~Line() override { --test.lines; }
        SessionTest& test;
    };

    void ask(const std::string&, std::function<void(FactsAnswer)> done) override {
        questions.push_back(std::move(done));
    }
    std::unique_ptr<HostLine> makeLine(const HostLine::Target& target, HostLine::Listener all) {
        EXPECT_EQ(target.address, "192.0.2.7");
        targets.push_back(target);
        // What a line told before it ended is not heard any more.
        host = std::move(all);
        ++lines;
        return std::make_unique<Line>(*this);
    }
    void comeIn() {
        session.start();
        questions.back()(somewhere());
        host.opened("012 345 678 901");
        host.stands({Place::Asked, 42});
        loop.advance(1s);
        host.stands({Place::Controlling, 0});
    }
    void end(LineEnd how, std::optional<sealing::ReturnSecret> secret = {}) {
        const auto kept = host;
        kept.ended({how, {}, secret});
    }
    std::string said() { return std::exchange(output, {}); }

    test::ManualLoop loop;
    int lines = 0;
    std::vector<std::function<void(FactsAnswer)>> questions;
    std::vector<HostLine::Target> targets;
    HostLine::Listener host;
    std::string output;
    Session session{
        {loop, *this,
         [this](const auto& target, auto listener) {
             return makeLine(target, std::move(listener));
         }},
        std::get<sealing::ShareLink>(sealing::parseLink("zelvo://pc#AAAAAAAAAAAAAAAAAAAAAA")),
        "Ben"};
    SessionLines script{session, [this](const auto& line) { output += line + "|"; }};
};

TEST_F(SessionTest, GoesFromTheLinkToTheGoodbyeAndAgain) {
    comeIn();
    EXPECT_EQ(said(),
              "State: asking|Host: pc|Digits: 012 345 678 901|State: asked 42|State: asked "
              "41|State: controlling|");
    const auto kept = host;
    kept.ended({LineEnd::Goodbye, sealing::Farewell::Disconnected});
    EXPECT_EQ(said(), "State: ended disconnected|");
    EXPECT_EQ(lines, 0);
    EXPECT_EQ(session.state().value().digits, "");

    // Only the answer to the last try counts, and none after an end.
    session.start();
    session.start();
    questions[1](NoFacts::Nonsense);
    EXPECT_EQ(said(), "State: asking|");
    questions[2](NoFacts::UnknownLink);
    EXPECT_EQ(said(), "State: ended unknown-link|");
    session.start();
    questions.back()(somewhere());
    end(LineEnd::Refused);
    EXPECT_EQ(said(), "State: asking|State: ended connection-refused|");
    session.start();
    session.leave();
    questions.back()(somewhere());
    EXPECT_EQ(said(), "State: asking|State: ended left|");
    EXPECT_EQ(lines, 0);
}

TEST_F(SessionTest, ComesBackForAMinuteByWhatItWasGiven) {
    const sealing::ReturnSecret secret;
    comeIn();
    end(LineEnd::Cut);
    EXPECT_TRUE(said().ends_with("State: ended cut|"));

    comeIn();
    EXPECT_EQ(targets.back().comesBackBy, std::nullopt);
    end(LineEnd::Cut, secret);
    EXPECT_TRUE(said().ends_with("State: returning|"));
    EXPECT_TRUE(targets.back().comesBackBy);
    // The same way while nobody has seen the proof.
    const auto tries = targets.size();
    end(LineEnd::NoRoute);
    EXPECT_EQ(lines, 0);
    loop.advance(1s);
    EXPECT_EQ(targets.size(), tries + 1);
    EXPECT_TRUE(targets.back().comesBackBy);
    host.opened("1");
    host.isBack();
    host.stands({Place::Watching, 0});
    EXPECT_FALSE(session.state().value().comparesAgain);
    EXPECT_TRUE(said().ends_with("State: watching|"));

    // Nothing proves that this is the host from before; and what was shown once is of no more use.
    end(LineEnd::Cut, secret);
    loop.advance(1s);
    host.opened("2");
    host.stands({Place::Watching, 0});
    EXPECT_TRUE(session.state().value().comparesAgain);
    end(LineEnd::Cut);
    EXPECT_TRUE(said().ends_with("State: ended cut|"));

    for (const auto how : {LineEnd::Refused, LineEnd::NotTheHost}) {
        comeIn();
        end(LineEnd::Cut, secret);
        end(how);
        EXPECT_EQ(session.state().value().stage,
                  how == LineEnd::Refused ? Stage::Returning : Stage::Ended);
    }
    // What the service knows meanwhile: where the host is now, and that the link is over.
    comeIn();
    end(LineEnd::Cut, secret);
    auto moved = somewhere();
    moved.port = 7;
    questions.back()(moved);
    end(LineEnd::Refused);
    loop.advance(1s);
    EXPECT_EQ(targets.back().port, 7);
    questions.back()(NoFacts::NoConnection);
    end(LineEnd::Refused);
    loop.advance(1s);
    questions.back()(NoFacts::UnknownLink);
    EXPECT_TRUE(said().ends_with("State: returning|State: ended link-ended|"));
    EXPECT_EQ(lines, 0);
    comeIn();
    end(LineEnd::Cut, secret);
    host.stands({Place::Watching, 0});
    questions.back()(NoFacts::Unavailable);
    EXPECT_TRUE(said().ends_with("State: watching|")) << "who is inside hears it from the host";

    comeIn();
    end(LineEnd::Cut, secret);
    loop.advance(Session::returnsWithin);
    EXPECT_TRUE(said().ends_with("State: ended cut|"));
    EXPECT_EQ(lines + static_cast<int>(loop.waiting() + loop.timers()), 0);
}

}  // namespace
}  // namespace zelvo::opener
