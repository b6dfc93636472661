// What the screen servers are measured with: text that scrolls at 30 frames/s, and a square that
// changes its colour at each key.
//
// usage: zelvo-bench-screen      "scroll" and "still" on standard input

#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto Frame = std::chrono::microseconds(33'333);
// A large terminal, 120 by 40, on a desktop that is not black, which would cost no memory.
constexpr std::uint16_t Line = 13;
constexpr std::uint16_t Columns = 120;
constexpr std::uint16_t Width = Columns * 6;
constexpr std::uint16_t Height = 40 * Line;
constexpr std::int16_t Left = 400;
constexpr std::int16_t Top = 300;
constexpr std::uint16_t Square = 32;

class BenchScreen {
  public:
    BenchScreen() : x_(xcb_connect(nullptr, nullptr)) {
        if (xcb_connection_has_error(x_)) {
            std::fputs("no display\n", stderr);
            std::exit(1);
        }
        const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(x_)).data;
        window_ = xcb_generate_id(x_);
        const std::array<std::uint32_t, 3> look{0x336699, 1,
                                                XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_EXPOSURE};
        xcb_create_window(
            x_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, screen->width_in_pixels,
            screen->height_in_pixels, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
            XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, look.data());
        const auto font = xcb_generate_id(x_);
        xcb_open_font(x_, font, 5, "fixed");
        ink_ = xcb_generate_id(x_);
        const std::array<std::uint32_t, 4> ink{screen->white_pixel, screen->black_pixel, font, 0};
        xcb_create_gc(
            x_, ink_, window_,
            XCB_GC_FOREGROUND | XCB_GC_BACKGROUND | XCB_GC_FONT | XCB_GC_GRAPHICS_EXPOSURES,
            ink.data());
        xcb_map_window(x_, window_);
        xcb_set_input_focus(x_, XCB_INPUT_FOCUS_POINTER_ROOT, window_, XCB_CURRENT_TIME);
        for (int i = 0; i < 40; ++i)
            scroll();
        xcb_flush(x_);
    }

    void run() {
        auto next = Clock::now();
        while (true) {
            const auto wait =
                std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
            std::array<pollfd, 2> ready{
                pollfd{STDIN_FILENO, POLLIN, 0},
                pollfd{xcb_get_file_descriptor(x_), POLLIN, 0},
            };
            ::poll(ready.data(), ready.size(),
                   !scrolls_ ? -1 : static_cast<int>(std::max<long>(wait, 0)));
            if (ready[0].revents && !command())
                return;
            while (auto event = std::unique_ptr<xcb_generic_event_t, decltype(&std::free)>(
                       xcb_poll_for_event(x_), std::free)) {
                if ((event->response_type & 0x7F) == XCB_KEY_PRESS)
                    changeSquare();
            }
            if (scrolls_ && Clock::now() >= next) {
                next = std::max(next + Frame, Clock::now());
                scroll();
            }
            if (xcb_flush(x_) <= 0)
                return;
        }
    }

  private:
    bool command() {
        std::array<char, 64> word{};
        const auto size = ::read(STDIN_FILENO, word.data(), word.size());
        if (size <= 0)
            return false;
        scrolls_ = std::string_view(word.data(), static_cast<std::size_t>(size)) == "scroll\n";
        std::puts("done");
        std::fflush(stdout);
        return true;
    }

    void scroll() {
        xcb_copy_area(x_, window_, window_, ink_, Left, Top + Line, Left, Top, Width,
                      Height - Line);
        std::string text;
        while (text.size() < Columns)
            text.push_back(random_() % 6 == 0 ? ' ' : static_cast<char>('a' + random_() % 26));
        xcb_image_text_8(x_, Columns, window_, ink_, Left, Top + Height - 3, text.data());
    }

    void changeSquare() {
        const std::uint32_t colour = isRed_ ? 0x0000FF : 0xFF0000;
        isRed_ = !isRed_;
        xcb_change_gc(x_, ink_, XCB_GC_FOREGROUND, &colour);
        const xcb_rectangle_t square{0, 0, Square, Square};
        xcb_poly_fill_rectangle(x_, window_, ink_, 1, &square);
        const std::uint32_t white = 0xFFFFFF;
        xcb_change_gc(x_, ink_, XCB_GC_FOREGROUND, &white);
    }

    xcb_connection_t* x_;
    xcb_window_t window_ = XCB_NONE;
    xcb_gcontext_t ink_ = XCB_NONE;
    std::minstd_rand random_;
    bool scrolls_ = false;
    bool isRed_ = false;
};

}  // namespace

int main() {
    BenchScreen().run();
}
