#include "server/screen/wlroots/WlrootsScreen.h"

#include <sys/epoll.h>

#include <utility>

namespace zelvo::server {

WlrootsScreen::WlrootsScreen(std::unique_ptr<WlrootsConnection> connection)
    : wayland_(std::move(connection)),
      picture_(loop_, *wayland_, [this] { hasChanged_ = true; }),
      pointer_(*wayland_),
      keyboard_(*wayland_),
      clipboard_(loop_, *wayland_, [this](const std::string& text) { copied_ = text; }),
      watch_(loop_, wayland_->descriptor(), [this](auto) { wayland_->dispatch(); }) {
    send();
}

void WlrootsScreen::dispatch(ScreenObserver& observer) {
    loop_.turn(platform::EventLoop::Clock::now());
    send();
    tell(observer);
}

/// A compositor that is busy may have no room yet, and nothing to say until it has heard us.
void WlrootsScreen::send() {
    watch_.setEvents(wayland_->flush() ? EPOLLIN : EPOLLIN | EPOLLOUT);
}

void WlrootsScreen::tell(ScreenObserver& observer) {
    if (wayland_->hasEnded()) {
        watch_.setEvents(0);
        if (!std::exchange(hasEnded_, true))
            observer.screenEnded(ScreenEnd::Gone);
        return;
    }
    if (!isWatched_)
        return;
    // It is in the picture; what viewers draw themselves is nothing.
    if (std::exchange(hasNewCursor_, false))
        observer.cursorChanged({{1, 1}, {0, 0}, {0}});
    if (!copied_.empty())
        observer.clipboardChanged(std::exchange(copied_, {}));
    if (std::exchange(hasChanged_, false))
        observer.screenChanged();
}

void WlrootsScreen::setWatched(bool isWatched) {
    isWatched_ = isWatched;
    hasNewCursor_ = isWatched;
    picture_.setWatched(isWatched);
    clipboard_.setWatched(isWatched);
    send();
}

std::vector<Rectangle> WlrootsScreen::capture(ScreenObserver& observer) {
    auto changed = picture_.capture();
    send();
    // Waiting for the compositor has read events, which no descriptor will tell of.
    tell(observer);
    return changed;
}

void WlrootsScreen::pointer(Point position, std::uint8_t buttons) {
    pointer_.set(picture_.aim(position), buttons);
}

}  // namespace zelvo::server
