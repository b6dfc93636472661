#include "server/vnc/VncServer.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using platform::FileDescriptor;
using platform::gate::Rights;
using Lines = std::vector<std::string>;

/// A desktop of one colour, which writes down what is done there.
class MemoryScreen : public Screen {
  public:
    int descriptor() const override { return news_.get(); }
    void dispatch(ScreenObserver& observer) override {
        eventfd_t count = 0;
        ::eventfd_read(news_.get(), &count);
        if (!copied_.empty())
            observer.clipboardChanged(std::exchange(copied_, {}));
        observer.screenChanged();
    }
    void setWatched(bool isWatched) override { said.emplace_back(isWatched ? "watched" : "alone"); }
    std::vector<Rectangle> capture(ScreenObserver&) override {
        size_ = wanted_;
        // Elsewhere than before, also where the size stays.
        std::vector<std::uint32_t> pixels(static_cast<std::size_t>(size_.width * size_.height));
        if (std::exchange(hasMoved_, false))
            pixels_.swap(pixels);
        std::fill(pixels_.begin(), pixels_.end(), colour_);
        return {{0, 0, size_.width, size_.height}};
    }
    Size size() const override { return size_; }
    std::span<std::uint32_t> pixels() override { return pixels_; }
    void pointer(Point at, std::uint8_t buttons) override {
        said.push_back("pointer " + std::to_string(at.x) + " " + std::to_string(buttons));
    }
    void key(std::uint32_t keysym, bool isDown) override {
        said.push_back((isDown ? "down " : "up ") + std::to_string(keysym));
    }
    void setClipboard(const std::string& text) override { said.push_back("clipboard " + text); }

    void become(Size size, std::uint32_t colour) {
        wanted_ = size;
        colour_ = colour;
        hasMoved_ = true;
        ::eventfd_write(news_.get(), 1);
    }
    void copy(const std::string& text) {
        copied_ = text;
        ::eventfd_write(news_.get(), 1);
    }
    Lines heard() { return std::exchange(said, {}); }

    Lines said;

  private:
    FileDescriptor news_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    Size size_{8, 8};
    Size wanted_{8, 8};
    std::uint32_t colour_ = 0;
    bool hasMoved_ = false;
    std::vector<std::uint32_t> pixels_ = std::vector<std::uint32_t>(64);
    std::string copied_;
};

class VncServerTest : public testing::Test {
  protected:
    /// What the viewer is told within a moment.
    std::string turn(std::chrono::milliseconds time = 60ms) {
        const auto until = platform::EventLoop::Clock::now() + time;
        do {
            loop.turn(std::min(until, vnc.nextDeadline()));
            vnc.tick(platform::EventLoop::Clock::now());
        } while (platform::EventLoop::Clock::now() < until);
        std::string bytes(1 << 16, '\0');
        const auto count = ::recv(viewer.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        return bytes.substr(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    std::string say(const std::string& bytes) {
        ::send(viewer.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        return turn();
    }
    /// Who then wants raw pictures and new sizes (RFC 6143, sections 7.7.1 and 7.8.2).
    void comeIn(Rights rights, ViewerId number = 1) {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        viewer = FileDescriptor(ends[0]);
        vnc.admit(number, FileDescriptor(ends[1]), rights);
        turn();
        say("RFB 003.008\n");
        say("\1");
        say("\1");
        say("\2\0\0\2\0\0\0\0\xff\xff\xff\x21"s);
    }

    const std::string keyDown = "\4\1\0\0\0\0\0a"s;
    const std::string buttonDown = "\5\1\0\3\0\0"s;
    const std::string cut = "\6\0\0\0\0\0\0\3abc"s;
    const std::string look = "\3\0\0\0\0\0\0\x10\0\x10"s;
    platform::EventLoop loop;
    MemoryScreen screen;
    std::atomic<bool> inputPasses = true;
    VncServer vnc{loop, screen, "test", inputPasses, [](auto) {}};
    FileDescriptor viewer;
};

}  // namespace

TEST_F(VncServerTest, WhoWatchesTouchesNothing) {
    comeIn(Rights::Watch);
    EXPECT_EQ(screen.heard(), Lines{"watched"});
    say(keyDown + buttonDown + cut);
    screen.copy("secret");
    EXPECT_EQ(turn().find("secret"), std::string::npos);
    EXPECT_EQ(screen.heard(), Lines{});

    vnc.setRights(1, Rights::Control);
    say(keyDown + buttonDown + cut);
    EXPECT_EQ(screen.heard(), (Lines{"down 97", "pointer 3 1", "clipboard abc"}));
    screen.copy("shared");
    EXPECT_NE(turn().find("shared"), std::string::npos);
    vnc.setRights(1, Rights::Watch);
    turn();
    EXPECT_EQ(screen.heard(), (Lines{"up 97", "pointer 3 0"})) << "what was held down";

    vnc.setRights(1, Rights::Control);
    inputPasses = false;
    say(keyDown + buttonDown + cut);
    EXPECT_EQ(screen.heard(), Lines{});
    inputPasses = true;
    say(keyDown);
    viewer.reset();
    turn();
    EXPECT_EQ(screen.heard(), (Lines{"down 97", "up 97", "alone"}));
}

TEST_F(VncServerTest, TwoShareOneKeyboardAndOneMouse) {
    comeIn(Rights::Control);
    auto other = std::move(viewer);
    comeIn(Rights::Control, 2);
    say(keyDown);
    std::swap(viewer, other);
    say(keyDown + buttonDown);
    std::swap(viewer, other);
    screen.heard();
    vnc.setRights(1, Rights::Watch);
    say(buttonDown);
    EXPECT_EQ(screen.heard(), (Lines{"pointer 3 0", "pointer 3 1"})) << "the other holds the key";
    say("\4\0\0\0\0\0\0a"s);
    EXPECT_EQ(screen.heard(), Lines{"up 97"});
}

TEST_F(VncServerTest, ShowsTheScreenAndItsNewSize) {
    comeIn(Rights::Watch);
    screen.become({8, 8}, 0x00112233);
    turn();
    say(look);
    EXPECT_NE(say(look).find("\x33\x22\x11"s), std::string::npos);
    screen.become({16, 4}, 0x00445566);
    turn();
    // The pseudo-encoding of the size, and the size in its rectangle.
    const auto size = say(look);
    EXPECT_NE(size.find("\0\x10\0\4\xff\xff\xff\x21"s), std::string::npos)
        << testing::PrintToString(size.substr(0, 40));
    EXPECT_NE(say(look).find("\x66\x55\x44"s), std::string::npos);
}

}  // namespace zelvo::server
