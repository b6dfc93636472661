#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "platform/qt/content/QrCode.h"
#include "platform/terminal/QuestionLines.h"
#include "platform/terminal/Terminal.h"
#include "platform/terminal/TerminalView.h"
#include "tests/qt/FrontEndWorld.h"
#include "tests/qt/Wait.h"
#include "tests/support/FakeViewers.h"

namespace zelvo::test {
namespace {

using namespace std::chrono_literals;

struct Pipe {
    Pipe() { EXPECT_EQ(::pipe2(ends, O_NONBLOCK), 0); }
    ~Pipe() {
        ::close(ends[0]);
        closeWriting();
    }
    void closeWriting() {
        if (ends[1] >= 0)
            ::close(std::exchange(ends[1], -1));
    }
    void write(const std::string& text) {
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    std::string read() {
        char buffer[8192];
        auto count = ::read(ends[0], buffer, sizeof buffer);
        return std::string(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    int ends[2];
};

struct Pipes {
    Pipe input;
    Pipe output;
};

/// The terminal on pipes.
struct TerminalTest : testing::Test, Pipes, FrontEndWorld<platform::Terminal> {
    TerminalTest()
        : FrontEndWorld(nullptr, "abc", [this](TerminalTest::FrontEndWorld& world) {
              return platform::Terminal(
                  world.loop, world.bundle, world.explanations,
                  [] { return std::vector<std::string>(); }, input.ends[0], output.ends[1]);
          }) {}

    /// Types and gives everything a turn.
    void type(const std::string& keys) {
        input.write(keys + "\n");
        turn();
    }
    /// Without a Return, `pause` after what came before.
    void typeAfter(std::chrono::milliseconds pause, const std::string& keys) {
        now += pause;
        input.write(keys);
        turn();
    }
    void ask(std::uint32_t viewer) {
        viewers.asked.set(platform::ViewerQuestion{viewer, "192.0.2.7", true, now + 60s, 0});
    }
    /// What was said to the screen server since the last time.
    std::string said() {
        std::string all;
        for (const auto& words : std::exchange(viewers.said, {}))
            all += (all.empty() ? "" : ", ") + words;
        return all;
    }
    void turn() {
        for (int i = 0; i < 3; ++i)
            test::turn(loop);
        fake.loop.settle();
    }

    platform::Terminal& terminal = frontEnd;
    platform::FakeViewers viewers;
    platform::QuestionPrompt::Clock::time_point now{};
    platform::TerminalView view{
        {terminal, controller, controller, explanations, fake.bundle, viewers, wayIn, preferences},
        output.ends[1],
        [this] { return now; }};
};

TEST_F(TerminalTest, ShowsRowsAndTheLinkPlainlyAndQuits) {
    type("c");
    EXPECT_EQ(output.read(), "");
    launch();
    fake.loop.advance(std::chrono::milliseconds(100));
    fake.screenSharing(true);
    fake.loop.settle();
    EXPECT_EQ(output.read(),
              "Port mapping: Applying Port Mapping...\n"
              "Port mapping: Port Mapping Successful.\n"
              "Connection: Waiting for connection...\n"
              "Link: zelvo://abc\n");
    type("c");
    EXPECT_EQ(output.read(), "Link: zelvo://abc\n");
    type("lc");
    EXPECT_EQ(fake.peer.count("delete.php"), 1U);
    type("nbb");
    EXPECT_EQ(fake.peer.count("create.php"), 3U);
    EXPECT_FALSE(fake.userDefaults.boolForKey("neverThroughARelay"));
    EXPECT_EQ(wayIn.relayUse().value(), platform::RelayUse::WhereNeeded);
    output.read();
    type("p");
    EXPECT_EQ(output.read(),
              "People come through a relay only where your router lets nobody in.\n");
    wayIn.wayIs({"relay.example", true});
    type("m");
    EXPECT_EQ(output.read(),
              "SHARED_LINK_MESSAGE_TOP\n\nzelvo://abc\n\nSHARED_LINK_MESSAGE_BOTTOM\n\n"
              "In a browser, with nothing to install: https://service.example/abc\n");
    type("c");
    EXPECT_EQ(output.read(), "Link: zelvo://abc\nIn a browser: https://service.example/abc\n");
    connectViewer(true);
    type("dx");
    EXPECT_EQ(fake.authorization.tools, std::vector<std::string>{"disconnect-screen-sharing.tool"});
    connectViewer(false);
    type("q");
    EXPECT_TRUE(terminal.application.hasTerminated());
    EXPECT_EQ(fake.router.open, 0);
}

TEST_F(TerminalTest, RowsGoQuietWhenNobodyReads) {
    platform::RowPrinter rows(controller, true, -1);
    Pipes quiet;
    platform::RowPrinter withoutLink(controller, false, quiet.output.ends[1]);
    platform::RowPrinter refused(controller, true, output.ends[0]);
    launchToLink();
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
    EXPECT_TRUE(quiet.output.read().ends_with("Connection: Waiting for connection...\n"));
}

TEST_F(TerminalTest, AsksByLettersAndHelps) {
    fake.bundle.strings["HELP_PAGE_ROUTER"] = "help/router.html";
    fake.router.refuseAll(platform::NatErrorNoRouter);
    explanations.routing.set("It does not answer.");
    launchToLink();
    turn();
    EXPECT_NE(output.read().find("Router Error\n"
                                 "It does not answer.\n"
                                 "Router Error Description\n"
                                 "[t] Try Again   [q] Quit   [?] Help\n"),
              std::string::npos);
    type("?");
    EXPECT_EQ(output.read(), "file:///resources/help/router.html\n");
    fake.router.refuseAll(0);
    fake.router.grantAll("203.0.113.7");
    // Cursor and function keys, Alt, Escape and what is no key.
    type("\x1b[T\x1b[1;5T\x1bOT\x1bT\xc5\x94\x04\x1b");
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusMappingFailed);
    type("T");
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
}

TEST_F(TerminalTest, SaysWhyAStageDoesNotComeOn) {
    controller.applicationDidFinishLaunching();
    explanations.sharing.set("No server here.");
    explanations.sharing.set("No server here.");
    explanations.routing.set("No router.");
    explanations.kept.set("Not kept.");
    EXPECT_EQ(output.read(), "Port mapping: Applying Port Mapping...\nNo server here.\n");
    explanations.routing.set("");
    launchToLink();
    EXPECT_NE(output.read().find("Not kept.\n"), std::string::npos);
    explanations.remaining.set("Not told.");
    EXPECT_EQ(output.read(), "");
    controller.applicationShouldTerminate();
    explanations.remaining.set("Not told.");
    EXPECT_NE(output.read().find("Not told.\n"), std::string::npos);
}

TEST_F(TerminalTest, PrintsAnOddLinkEscaped) {
    const std::string link = "a\x1B[31m\nb\u202E\u00e9" + std::string(3000, 'x');
    answerWith(link);
    launchToLink();
    type("c");
    const auto line = "Link: zelvo://a%1B[31m%0Ab%E2%80%AE\u00e9" + std::string(3000, 'x') + "\n";
    const auto printed = output.read();
    EXPECT_TRUE(printed.ends_with(line + line)) << printed;
}

TEST_F(TerminalTest, KeepsASessionOnNoAndEndsItOnTheSecondSignal) {
    launchToLink();
    connectViewer(true);
    type("q");
    EXPECT_NE(output.read().find("[y] Yes   [n] No\n"), std::string::npos);
    type("n");
    EXPECT_FALSE(terminal.application.isTerminating());
    EXPECT_TRUE(fake.authorization.tools.empty());
    std::raise(SIGINT);
    EXPECT_TRUE(waitFor([&] { return terminal.application.isTerminating(); }));
    std::raise(SIGINT);
    EXPECT_TRUE(waitFor([&] { return !fake.authorization.tools.empty(); }));
}

TEST_F(TerminalTest, TheEndOfInputQuitsEvenDuringASession) {
    launchToLink();
    connectViewer(true);
    input.closeWriting();
    EXPECT_TRUE(waitFor([&] {
        fake.loop.settle();
        return terminal.application.hasTerminated();
    }));
    EXPECT_EQ(fake.authorization.tools.size(), 1u);
    EXPECT_EQ(fake.peer.last("update.php").fields.at("availabilityStatus"), "1");
}

TEST_F(TerminalTest, AWholeWordAnswersAndNothingLess) {
    fake.bundle.strings["watch"] = "zusehen";
    fake.bundle.strings["refuse"] = "ODMÓW";
    launchToLink();
    const std::pair<const char*, const char*> cases[] = {
        {"help\n", ", answer 1 control"},
        {"WATCH\r", ", answer 1 watch"},
        {" Zusehen \n", ", answer 1 watch"},
        {"odmów\n", ", answer 1 refuse"},
        {"refuse all\n", ", answer 1 refuse, refuse everybody"},
        {"no\nhó\x7f"
         "elp\nwatch\n",
         ", answer 1 control"},
        {"help", ""},
        {"\n\n\x1b\n\t", ""},
        {"q\nd\nr\na\ny\nh\n", ""},
        {"he\tlp\n", ""},
        {"help me\nshelp\nshow\n", ""},
        {"disconnect\n", ", disconnect everybody"}};
    for (const auto& [keys, words] : cases) {
        ask(1);
        typeAfter(1s, keys);
        viewers.asked.set({});
        EXPECT_EQ(said(), "question shown" + std::string(words) + ", question hidden") << keys;
        now += 1s;
        output.read();
    }
    EXPECT_FALSE(terminal.application.isTerminating());
    EXPECT_EQ(fake.authorization.tools, std::vector<std::string>{"disconnect-screen-sharing.tool"});
    type("aw");
    EXPECT_EQ(said(), "ask again, only link holders");
    // Where nobody can help that is no word.
    explanations.limits.set("No keys.");
    EXPECT_TRUE(output.read().ends_with("\nNo keys.\n"));
    viewers.able.set({false, false});
    ask(2);
    EXPECT_NE(output.read().find("They can only watch"), std::string::npos);
    typeAfter(1s, "help\nwatch\n");
    viewers.isInside.set({{2, "192.0.2.7", true, platform::ViewerRights::Watch, {}}});
    viewers.asked.set({});
    now += 1s;
    type("r");
    typeAfter(1s, "help\n");
    EXPECT_EQ(said(), "question shown, answer 2 watch, question hidden");
}

TEST_F(TerminalTest, WhatWasTypedForSomethingElseAnswersNothing) {
    launchToLink();
    type("he");
    ask(1);
    typeAfter(999ms, "lp\nhelp\nhe");
    typeAfter(1ms, "lp\n");
    ask(2);
    typeAfter(1s, "pleased");
    viewers.asked.set({});
    typeAfter(999ms, "dqr\nhelp\n");
    EXPECT_EQ(said(), "question shown, question hidden, question shown, question hidden");
    std::mt19937 random(1);
    const std::string keys = "abcdefghijklmnopqrstuvwxyzehlpwatchrefus\n\n\n\n\t  \x1b\x7f";
    for (std::uint32_t viewer = 3; viewer < 200; ++viewer) {
        ask(viewer);
        std::string typed;
        while (typed.size() < 200)
            typed += keys[random() % keys.size()];
        typeAfter(300ms * (viewer % 7), typed);
        output.read();
    }
    EXPECT_EQ(said().find("answer"), std::string::npos);
    EXPECT_FALSE(terminal.application.isTerminating());
}

TEST_F(TerminalTest, NobodyInsideCanLetTheNextOneIn) {
    launchToLink();
    connectViewer(true);
    platform::Viewer viewer{7, "192.0.2.1", true, platform::ViewerRights::Control, {}};
    viewers.isInside.set({viewer});
    ask(8);
    now += 1s;
    type("help");
    EXPECT_EQ(said(), "");
    type("s");
    EXPECT_EQ(said(), "question shown");
    typeAfter(1s, "watch\n");
    viewers.asked.set({});
    EXPECT_EQ(said(), "answer 8 watch, question hidden");
    type("r");
    EXPECT_EQ(said(), "rights 7 watch");
    viewer.rights = platform::ViewerRights::Watch;
    viewer.name = "Ana";
    viewer.digits = "012 345 678 901";
    viewers.isInside.set({viewer});
    type("r");
    type("no");
    type("rhelp");
    EXPECT_EQ(said(), "rights 7 control");
    ask(9);
    EXPECT_NE(
        output.read().find("\u2068Ana\u2069 is in and only watches. The connection is sealed"),
        std::string::npos);
    viewers.isInside.set({});
    EXPECT_EQ(said(), "question shown");
    EXPECT_TRUE(output.read().starts_with("\u2068Ana\u2069 has left.\n"));
    viewers.asked.set({});
    now += 1s;
    type("d");
    EXPECT_EQ(said(), "question hidden, disconnect everybody");
    EXPECT_EQ(fake.authorization.tools, std::vector<std::string>{"disconnect-screen-sharing.tool"});
}

TEST_F(TerminalTest, ANewQuestionLetsAnAlertWaitAndBringsItBack) {
    fake.router.refuseAll(platform::NatErrorNoRouter);
    launchToLink();
    turn();
    ask(1);
    typeAfter(1s, "t");
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusMappingFailed);
    output.read();
    viewers.asked.set({});
    turn();
    EXPECT_NE(output.read().find("[t] Try Again"), std::string::npos);
    fake.router.refuseAll(0);
    fake.router.grantAll("203.0.113.7");
    typeAfter(1s, "t");
    EXPECT_EQ(controller.zelvoStatus(), ZelvoStatusWaitingForConnection);
}

TEST_F(TerminalTest, BesideAWindowTakesLinesAndOutlivesTheirEnd) {
    Pipes own;
    platform::FakeViewers others;
    platform::QuestionLines lines(others, wayIn, controller, explanations, fake.bundle,
                                  own.input.ends[0], own.output.ends[1]);
    others.isInside.set({{7, "192.0.2.1", true, platform::ViewerRights::Control, {}}});
    EXPECT_TRUE(
        own.output.read().ends_with("To disconnect: type “disconnect” and press Return.\n"));
    own.input.write("d\ndisconnect\nNo Relay\n");
    turn();
    EXPECT_EQ(others.said, std::vector<std::string>{"disconnect everybody"});
    EXPECT_EQ(fake.userDefaults.stringForKey("neverThroughARelay"), "YES");
    own.input.closeWriting();
    turn();
    EXPECT_FALSE(terminal.application.isTerminating());
}

TEST(QrCode, HoldsItsQuietZoneAndFinders) {
    EXPECT_FALSE(platform::makeQrCode(""));
    EXPECT_FALSE(platform::makeQrCode(std::string(5000, 'x')));
    auto code = platform::makeQrCode("zelvo://abcdefghijklmnop#AAAAAAAAAAAAAAAAAAAAAA");
    ASSERT_TRUE(code);
    EXPECT_EQ((code->size - 17) % 4, 0);
    EXPECT_TRUE(code->isDark(0, 0) && code->isDark(6, 6) && code->isDark(code->size - 1, 0));
    EXPECT_FALSE(code->isDark(7, 7) || code->isDark(-1, 0) || code->isDark(0, code->size));
    auto lines = platform::linesOf(*code);
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(code->size + 5) / 2);
    EXPECT_EQ(lines[1].substr(0, 6), "██");
}

}  // namespace
}  // namespace zelvo::test
