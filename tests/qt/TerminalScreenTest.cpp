#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <QByteArray>

#include "platform/terminal/Terminal.h"
#include "platform/terminal/TerminalView.h"
#include "platform/terminal/Wrapping.h"
#include "tests/qt/FrontEndWorld.h"

namespace zelvo::test {
namespace {

using namespace std::chrono_literals;

/// A terminal of a size, whose user has not seen what was written to it yet.
struct PseudoTerminal {
    PseudoTerminal() {
        winsize size{.ws_row = 24, .ws_col = 40, .ws_xpixel = 0, .ws_ypixel = 0};
        EXPECT_EQ(::openpty(&user, &program, nullptr, nullptr, &size), 0);
        ::fcntl(user, F_SETFL, O_NONBLOCK);
        ::setenv("TERM", "xterm", 1);
    }
    ~PseudoTerminal() {
        ::close(user);
        ::close(program);
    }
    std::string read() const {
        std::string all;
        char buffer[4096];
        for (ssize_t count; (count = ::read(user, buffer, sizeof buffer)) > 0;)
            all.append(buffer, static_cast<std::size_t>(count));
        return all;
    }
    bool echoes() const {
        termios settings{};
        return ::tcgetattr(program, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }
    int user = -1;
    int program = -1;
};

TEST(TerminalScreen, KeepsTheLinkWholeAndGivesTheTerminalBack) {
    PseudoTerminal pty;
    const std::string link = "b166f29a1160b9772e7e5a70df3f57b6#StfskksvIoZZnCVqAKNmNQ";
    {
        FrontEndWorld<platform::Terminal> world(nullptr, link, [&](auto& made) {
            return platform::Terminal(
                made.loop, made.bundle, made.explanations,
                [] { return std::vector<std::string>(); }, pty.program, pty.program);
        });
        auto& terminal = world.frontEnd;
        platform::TerminalView view({terminal, world.controller, world.controller,
                                     world.explanations, world.bundle, world.viewers, world.wayIn,
                                     world.preferences});
        EXPECT_FALSE(pty.echoes());
        world.launchToLink();
        // In the last two lines, which are one to the terminal.
        EXPECT_NE(pty.read().find("\033[23;1Hzelvo://" + link), std::string::npos);
        const auto shown = [&](const std::string& keys) {
            EXPECT_EQ(::write(pty.user, keys.data(), keys.size()), ssize_t(keys.size()));
            turn(world.loop);
            turn(world.loop);
            return pty.read();
        };
        EXPECT_NE(shown("?").find("[ ] A New Link at Every Start"), std::string::npos);
        EXPECT_NE(shown("e").find("[x] A New Link at Every Start"), std::string::npos);
        EXPECT_TRUE(world.fake.userDefaults.boolForKey("useNewLinkAtEveryLaunch"));
        EXPECT_EQ(shown("c").find("\033[H\033[2J"), std::string::npos);
        const auto copied = QByteArray::fromStdString("zelvo://" + link).toBase64();
        EXPECT_NE(shown("c").find("\033]52;c;" + copied.toStdString()), std::string::npos);
        EXPECT_NE(shown("m").find("\033]52;c;"), std::string::npos);
        // A question is whole, and what is typed in answer stands below it.
        world.viewers.asked.set(platform::ViewerQuestion{
            1, "192.0.2.7", true, platform::QuestionPrompt::Clock::now() + 60s, 0});
        EXPECT_NE(shown("").find("Somebody wants to see your screen, from"), std::string::npos);
        // What steers a terminal does not reach it.
        terminal.console.line("\033[31mred");
        EXPECT_NE(pty.read().find("?[31mred"), std::string::npos);
        terminal.console.setLastWords("Still there.");
    }
    EXPECT_TRUE(pty.read().ends_with("\033[?1049lStill there.\r\n"));
    EXPECT_TRUE(pty.echoes());
}

TEST(TerminalScreen, BreaksLinesWhereTheyMayBeBroken) {
    using Lines = std::vector<std::string>;
    const std::pair<std::string, Lines> cases[] = {
        {"one two three", {"one two", "three"}},
        {"one two  x", {"one two", "x"}},
        {"0123456789", {"01234567", "89"}},
        {"a 0123456789", {"a", "01234567", "89"}},
        {"路由器已设置好", {"路由器已", "设置好"}},
        {"", {""}},
        {"a\nb", {"a", "b"}},
    };
    for (const auto& [text, lines] : cases)
        EXPECT_EQ(platform::wrapped(text, 8), lines) << text;
}

}  // namespace
}  // namespace zelvo::test
