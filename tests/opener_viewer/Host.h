#pragma once

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "server/vnc/ScreenThread.h"

namespace zelvo::test {

using platform::FileDescriptor;

/// Both ends of a connection.
inline std::pair<FileDescriptor, FileDescriptor> connected() {
    int ends[2];
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// A desktop of noise, which writes down what is done there.
struct Desktop {
    explicit Desktop(server::Size first) { become(first); }
    void become(server::Size newSize) {
        const std::lock_guard lock(mutex);
        size = newSize;
        pixels.resize(static_cast<std::size_t>(size.width * size.height));
        for (auto& pixel : pixels)
            pixel = static_cast<std::uint32_t>(random()) & 0xFFFFFFU;
        ::eventfd_write(news.get(), 1);
    }
    void copy(const std::string& text) {
        const std::lock_guard lock(mutex);
        copied = text;
        ::eventfd_write(news.get(), 1);
    }
    void show(server::Cursor shape) {
        const std::lock_guard lock(mutex);
        cursor = std::move(shape);
        ::eventfd_write(news.get(), 1);
    }
    void note(const std::string& line) {
        const std::lock_guard lock(mutex);
        said += line + "\n";
    }
    std::string heard() {
        const std::lock_guard lock(mutex);
        return std::exchange(said, {});
    }

    std::mutex mutex;
    FileDescriptor news{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::mt19937 random{7};
    server::Size size;
    std::vector<std::uint32_t> pixels;
    std::string copied;
    server::Cursor cursor;
    std::string said;
};

class DesktopScreen : public server::Screen {
  public:
    explicit DesktopScreen(Desktop& desktop)
        : desktop_(desktop), size_(desktop.size), pixels_(desktop.pixels) {}

    int descriptor() const override { return desktop_.news.get(); }
    void dispatch(server::ScreenObserver& observer) override {
        const std::lock_guard lock(desktop_.mutex);
        eventfd_t count = 0;
        if (::eventfd_read(desktop_.news.get(), &count) != 0)
            return;
        if (!desktop_.copied.empty())
            observer.clipboardChanged(std::exchange(desktop_.copied, {}));
        if (!desktop_.cursor.pixels.empty())
            observer.cursorChanged(std::exchange(desktop_.cursor, {}));
        observer.screenChanged();
    }
    void setWatched(bool) override {}
    std::vector<server::Rectangle> capture(server::ScreenObserver&) override {
        const std::lock_guard lock(desktop_.mutex);
        if (size_ == desktop_.size)
            std::copy(desktop_.pixels.begin(), desktop_.pixels.end(), pixels_.begin());
        else
            pixels_ = desktop_.pixels;
        size_ = desktop_.size;
        return {{0, 0, size_.width, size_.height}};
    }
    server::Size size() const override { return size_; }
    std::span<std::uint32_t> pixels() override { return pixels_; }
    void pointer(server::Point at, std::uint8_t buttons) override {
        desktop_.note("pointer " + std::to_string(at.x) + " " + std::to_string(at.y) + " " +
                      std::to_string(buttons));
    }
    void key(std::uint32_t keysym, bool isDown) override {
        desktop_.note((isDown ? "down " : "up ") + std::to_string(keysym));
    }
    void setClipboard(const std::string& text) override { desktop_.note("clipboard " + text); }

  private:
    Desktop& desktop_;
    server::Size size_;
    std::vector<std::uint32_t> pixels_;
};

/// What shows a desktop to viewers in earnest.
class Host {
  public:
    explicit Host(server::Size size) : desktop(size) {
        // As its program has it: viewers leave while it speaks.
        std::signal(SIGPIPE, SIG_IGN);
    }

    /// The viewer's end.
    FileDescriptor admit() {
        auto [ours, theirs] = connected();
        thread_.admit(++viewers_, std::move(theirs), platform::gate::Rights::Control);
        return std::move(ours);
    }

    Desktop desktop;

  private:
    server::ScreenThread thread_{
        [this] {
            return std::make_unique<server::OpenedAtOnce>(
                server::ScreenResult{std::make_unique<DesktopScreen>(desktop), {}, {}});
        },
        "host",
        {[] {}, [](const auto&) {}, [](auto) {}}};
    server::ViewerId viewers_ = 0;
};

}  // namespace zelvo::test
