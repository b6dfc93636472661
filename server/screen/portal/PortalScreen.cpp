#include "server/screen/portal/PortalScreen.h"

#include <linux/input-event-codes.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "server/screen/ChangedTiles.h"

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t leftShift = 0xFFE1;
// Of a session that the desktop closes the streams end first.
constexpr auto untilClosed = 500ms;

/// What bits 0 to 2 of a viewer's buttons are.
constexpr std::array buttonCodes{BTN_LEFT, BTN_MIDDLE, BTN_RIGHT};
struct WheelStep {
    PortalSession::Axis axis;
    int steps;
};
/// And the bits behind them.
constexpr std::array wheelSteps{
    WheelStep{PortalSession::Axis::Vertical, -1}, WheelStep{PortalSession::Axis::Vertical, 1},
    WheelStep{PortalSession::Axis::Horizontal, -1}, WheelStep{PortalSession::Axis::Horizontal, 1}};

/// Portals look a keysym up as it is written in the layout, where a character that has a name of
/// its own never stands by its number.
std::uint32_t asLayoutsNameIt(std::uint32_t keysym) {
    constexpr std::uint32_t unicode = 0x01000000;
    return keysym >= unicode ? xkb_utf32_to_keysym(keysym - unicode) : keysym;
}

/// Portals take places in the desktop's own measure, but GNOME's takes pixels.
bool portalPointsByPixels() {
    const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
    return desktop && std::string_view(desktop).find("GNOME") != std::string_view::npos;
}

void convertRow(const Frame& frame, int y, std::uint32_t* to) {
    const auto width = static_cast<std::size_t>(frame.size.width);
    std::memcpy(to, frame.pixels + static_cast<std::size_t>(y) * frame.stride, width * 4);
    if (frame.isRedFirst) {
        for (std::size_t i = 0; i < width; ++i)
            to[i] = (to[i] & 0xFF00U) | (to[i] & 0xFFU) << 16U | (to[i] >> 16U & 0xFFU);
    } else {
        for (std::size_t i = 0; i < width; ++i)
            to[i] &= 0xFFFFFFU;
    }
}

}  // namespace

PortalScreen::PortalScreen(std::string tokenFile)
    : pointsByPixels_(portalPointsByPixels()),
      session_(loop_, std::move(tokenFile),
               {.started = [this] { openStreams(); },
                .failed = [this](auto failure) { fail(failure); }}) {
    session_.clipboard().setListener([this](const auto& text) { copied_ = text; });
}

void PortalScreen::fail(PortalSession::Failure failure) {
    if (!failure_)
        failure_ = failure;
}

void PortalScreen::openStreams() {
    auto ended = [this] { fail(PortalSession::Failure::Broken); };
    pipeWire_ = std::make_unique<PipeWireRemote>(loop_, session_.takePipeWire(), ended);
    if (!pipeWire_->core())
        return ended();
    layout_.emplace(session_.monitors());
    for (std::size_t i = 0; i < session_.monitors().size(); ++i) {
        streams_.push_back(std::make_unique<PipeWireStream>(
            pipeWire_->core(), session_.monitors()[i].node,
            PipeWireStream::Handlers{
                .frameCame = [this] { hasChanged_ = true; },
                .cursorChanged = [this](const auto& cursor) { newCursor_ = cursor; },
                .cursorMoved =
                    [this, i](auto position) {
                        const auto& origin = layout_->monitors()[i].origin;
                        newPosition_ = Point{origin.x + position.x, origin.y + position.y};
                    },
                .ended = [this] { untilBroken_.set(untilClosed); }}));
    }
}

bool PortalScreen::becomesShown() {
    if (streams_.empty() || failure_)
        return false;
    for (const auto& stream : streams_) {
        if (!stream->frame())
            return false;
    }
    for (std::size_t i = 0; i < streams_.size(); ++i)
        resize(i, streams_[i]->frame()->size);
    // A session's first key makes its keyboard, and is lost, as are those that follow before all
    // programs have seen that there is one.
    session_.pressKey(leftShift, true);
    session_.pressKey(leftShift, false);
    setWatched(false);
    return true;
}

void PortalScreen::setWatched(bool isWatched) {
    isWatched_ = isWatched;
    session_.clipboard().setWatched(isWatched);
    for (const auto& stream : streams_)
        stream->setActive(isWatched);
    // What the next one sees first is nothing of before.
    if (!isWatched) {
        std::fill(pixels_.begin(), pixels_.end(), 0);
        copied_.clear();
    }
}

void PortalScreen::dispatch(ScreenObserver& observer) {
    turn();
    if (failure_) {
        if (!std::exchange(hasToldEnd_, true))
            observer.screenEnded(*failure_ == PortalSession::Failure::Closed ? ScreenEnd::Withdrawn
                                                                             : ScreenEnd::Gone);
        return;
    }
    if (!isWatched_)
        return;
    if (auto cursor = std::exchange(newCursor_, std::nullopt))
        observer.cursorChanged(*cursor);
    if (auto position = std::exchange(newPosition_, std::nullopt))
        observer.cursorMoved(*position);
    if (!copied_.empty())
        observer.clipboardChanged(std::exchange(copied_, {}));
    if (std::exchange(hasChanged_, false))
        observer.screenChanged();
}

std::vector<Rectangle> PortalScreen::capture(ScreenObserver&) {
    std::vector<Rectangle> changed;
    bool isAnother = false;
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        const auto frame = streams_[i]->frame();
        if (!frame)
            continue;
        if (frame->size != layout_->monitors()[i].pixels) {
            resize(i, frame->size);
            isAnother = true;
        }
        const auto& origin = layout_->monitors()[i].origin;
        updateTiles(
            pixels_, size(), {origin.x, origin.y, frame->size.width, frame->size.height},
            [&](int y, std::uint32_t* to) { convertRow(*frame, y, to); }, changed);
        streams_[i]->letGo();
    }
    if (isAnother)
        changed = {{0, 0, size().width, size().height}};
    return changed;
}

void PortalScreen::resize(std::size_t monitor, Size newSize) {
    const auto before = *layout_;
    layout_->resize(monitor, newSize);
    const auto old =
        std::exchange(pixels_, std::vector<std::uint32_t>(static_cast<std::size_t>(size().width) *
                                                          static_cast<std::size_t>(size().height)));
    // The other monitors look as they did, and may not change for long.
    for (std::size_t i = 0; i < before.monitors().size() && !old.empty(); ++i) {
        const auto& from = before.monitors()[i];
        const auto& to = layout_->monitors()[i];
        for (int y = 0; i != monitor && y < from.pixels.height; ++y)
            std::copy_n(old.data() + (from.origin.y + y) * before.size().width + from.origin.x,
                        from.pixels.width,
                        pixels_.data() + (to.origin.y + y) * size().width + to.origin.x);
    }
}

void PortalScreen::movePointer(const MonitorLayout::Monitor& monitor, Point point) {
    const auto node = monitor.portal.node;
    const auto& measured = monitor.portal.size;
    if (!pointsByPixels_ || monitor.scale == 1)
        return session_.movePointer(node, point.x / monitor.scale, point.y / monitor.scale);
    // Though its portal lets no number pass that is beyond the desktop's own measure.
    const Point possible{std::min(point.x, measured.width - 1),
                         std::min(point.y, measured.height - 1)};
    session_.movePointer(node, possible.x, possible.y);
    if (possible != point)
        session_.movePointerBy((point.x - possible.x) / monitor.scale,
                               (point.y - possible.y) / monitor.scale);
}

void PortalScreen::pointer(Point position, std::uint8_t buttons) {
    if (position != position_) {
        position_ = position;
        const auto place = layout_->place(position);
        movePointer(*place.monitor, place.point);
    }
    const unsigned changed = buttons ^ std::exchange(buttons_, buttons);
    for (std::size_t bit = 0; bit < buttonCodes.size() + wheelSteps.size(); ++bit) {
        const bool isDown = buttons >> bit & 1U;
        if (!(changed >> bit & 1U))
            continue;
        if (bit < buttonCodes.size())
            session_.pressButton(buttonCodes[bit], isDown);
        else if (isDown)
            session_.turnWheel(wheelSteps[bit - buttonCodes.size()].axis,
                               wheelSteps[bit - buttonCodes.size()].steps);
    }
}

void PortalScreen::key(std::uint32_t keysym, bool isDown) {
    session_.pressKey(asLayoutsNameIt(keysym), isDown);
}

}  // namespace zelvo::server
