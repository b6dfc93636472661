#include <sys/epoll.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "server/screen/choice/ScreenModule.h"
#include "server/screen/portal/PortalScreen.h"
#include "server/screen/portal/Timer.h"

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;
using platform::EventLoop;

// Leave that was kept comes sooner, without a question.
constexpr auto untilAskedForSure = 500ms;
// For the portal's services to come up.
constexpr auto longestSilence = 30s;
// For the first picture once the user has said yes.
constexpr auto longestDarkness = 10s;

ScreenResult failed(PortalSession::Failure failure) {
    switch (failure) {
        case PortalSession::Failure::Missing:
            return {nullptr, "portal-missing", "The desktop has no portal that shows the screen."};
        case PortalSession::Failure::Refused:
            return {nullptr, "desktop-refused",
                    "The user did not let the desktop show the screen."};
        case PortalSession::Failure::Closed:
        case PortalSession::Failure::Broken:
            break;
    }
    return {nullptr, "desktop-failed", "The desktop's portal or PipeWire failed."};
}

std::string tokenFile() {
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    const auto base = state && *state == '/' ? std::string(state)
                                             : std::string(home ? home : "") + "/.local/state";
    return base + "/zelvo/screen-token";
}

class PortalOpening : public ScreenOpening {
  public:
    PortalOpening() : screen_(std::make_unique<PortalScreen>(tokenFile())) {
        screenWatch_.setEvents(EPOLLIN);
        waitFor(Wait::Portal, longestSilence);
        screen_->start();
    }

    std::optional<ScreenResult> proceed() override {
        loop_.turn({});
        if (const auto failure = screen_->failure())
            return failed(*failure);
        if (screen_->becomesShown()) {
            screenWatch_.setEvents(0);
            return ScreenResult{std::move(screen_), {}, {}};
        }
        if (isTimeUp_)
            return failed(PortalSession::Failure::Broken);
        if (screen_->hasStarted())
            waitFor(Wait::Picture, longestDarkness);
        else if (screen_->asksUser())
            waitFor(Wait::User, untilAskedForSure);
        return std::nullopt;
    }
    int descriptor() const override { return loop_.descriptor(); }
    bool asksUser() const override { return asksUser_; }

  private:
    enum class Wait { Nothing, Portal, User, Picture };

    void waitFor(Wait wait, std::chrono::milliseconds time) {
        if (std::exchange(wait_, wait) != wait)
            timer_.set(time);
    }
    void timeIsUp() {
        // The user may take any time.
        if (wait_ == Wait::User)
            asksUser_ = true;
        else
            isTimeUp_ = true;
    }

    EventLoop loop_;
    std::unique_ptr<PortalScreen> screen_;
    EventLoop::Watch screenWatch_{loop_, screen_->descriptor(), [this](auto) { screen_->turn(); }};
    Timer timer_{loop_, [this] { timeIsUp(); }};
    Wait wait_ = Wait::Nothing;
    bool asksUser_ = false;
    bool isTimeUp_ = false;
};

}  // namespace

}  // namespace zelvo::server

extern "C" void zelvoOpenScreen(std::unique_ptr<zelvo::server::ScreenOpening>& opening) {
    opening = std::make_unique<zelvo::server::PortalOpening>();
}
