#include "platform/linux/screen_sharing/ScreenSharingExplanation.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "platform/Bundle.h"
#include "platform/MainQueue.h"
#include "platform/Viewers.h"
#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

struct ToolReason {
    std::string_view word;
    const char* key;
};

/// In which the enable tool says why the server that it started has ended.
constexpr std::chrono::seconds reasonTime{5};
constexpr const char* cannotWrite =
    "The settings of Screen Sharing cannot be written, probably because the disk is full. Make "
    "room, then press “Start Over”.";

/// The words are those of the enable tool.
constexpr std::array toolReasons{
    ToolReason{"no-display", "There is no screen to share here. Start Zelvo in a desktop session."},
    ToolReason{
        "wayland-no-server",
        "A part of Zelvo that shows the screen of this session (Wayland) is missing. Install "
        "Zelvo again."},
    ToolReason{"portal-missing",
               "Your desktop has no part that shows the screen to others. Install the package "
               "“xdg-desktop-portal” and the one that goes with it for your desktop, such as "
               "“xdg-desktop-portal-gnome”, then log out and in again."},
    ToolReason{"desktop-refused",
               "Your desktop was not allowed to show your screen. Press “Start Over”, and choose "
               "“Share” when it asks."},
    ToolReason{"desktop-failed",
               "Your desktop could not show your screen. Press “Start Over” to try again; if that "
               "does not help, log out and in again."},
    ToolReason{"no-runtime-folder",
               "This session has no folder of its own for running programs (XDG_RUNTIME_DIR). Log "
               "out and in again, then start Zelvo again."},
    ToolReason{"not-installed",
               "The program that shows your screen (screensharingd) is missing. Install Zelvo "
               "again."},
    ToolReason{
        "port-taken",
        "Another program shares your screen already, and may let people in without asking you. "
        "Zelvo leaves it alone. End it, then press “Start Over”."},
    ToolReason{
        "other-session",
        "Screen Sharing is on for another user of this computer. End it there, then press “Start "
        "Over”."},
    ToolReason{"display-refused",
               "The program that shows your screen was not let in by the display."},
    ToolReason{"cannot-write", cannotWrite},
    // On a full disk not even the word could be written.
    ToolReason{"", cannotWrite},
};
constexpr const char* otherReason =
    "The program that shows your screen did not start. Press “Start Over” to try again.";
constexpr const char* asksNow =
    "Your desktop asks whether Zelvo may show your screen. Look for its window, choose your "
    "screen, "
    "switch on “Allow Remote Interaction” if others are to help with mouse and keyboard, and press "
    "“Share”.";
constexpr const char* canOnlyWatch =
    "Whoever you let in can only watch, because “Allow Remote Interaction” was off when your "
    "desktop asked. To let them help, quit Zelvo, start it again, and switch it on.";
constexpr const char* canNeverHelp =
    "Whoever you let in can only watch, because your desktop has no part through which others "
    "could use mouse and keyboard. In a session of another desktop, such as GNOME, they can help.";
constexpr const char* hasNoClipboard =
    "Your desktop does not share what is copied: text that you or your helper copy stays on the "
    "computer where it was copied.";
constexpr const char* hasWithdrawn =
    "Your desktop has stopped showing your screen, as it does when you choose “Stop” in its top "
    "bar or take a monitor away. Press “Start Over” to show it again.";
constexpr const char* hasEnded =
    "Screen Sharing has ended, since the program that showed your screen is gone. Press “Start "
    "Over” to switch it on again.";

}  // namespace

ScreenSharingExplanation::ScreenSharingExplanation(MainQueue& mainQueue, const Bundle& bundle,
                                                   std::string reasonFile,
                                                   std::chrono::seconds patience)
    : mainQueue_(mainQueue),
      bundle_(bundle),
      reasonFile_(std::move(reasonFile)),
      patience_(patience),
      seen_(identity()) {}

void ScreenSharingExplanation::update() {
    auto found = identity();
    if (found != seen_) {
        seen_ = found;
        toolEnded();
        say(seen_ ? reason() : "");
    } else if (toolWorks_.value() && std::chrono::steady_clock::now() >= patienceEnds_) {
        toolEnded();
        say(bundle_.localizedString(otherReason));
    }
}

void ScreenSharingExplanation::toolStarted() {
    patienceEnds_ = std::chrono::steady_clock::now() + patience_;
    toolWorks_.set(true);
    say("");
}

void ScreenSharingExplanation::desktopAsks() {
    patienceEnds_ = std::chrono::steady_clock::time_point::max();
    say(bundle_.localizedString(asksNow));
}

void ScreenSharingExplanation::desktopLets(const ViewerAbilities& abilities) {
    const auto* key = !abilities.couldControl        ? canNeverHelp
                      : !abilities.canControl        ? canOnlyWatch
                      : !abilities.canShareClipboard ? hasNoClipboard
                                                     : nullptr;
    limits_.set(key ? bundle_.localizedString(key) : "");
}

void ScreenSharingExplanation::serverListens() {
    toolEnded();
    say("");
}

void ScreenSharingExplanation::serverEnded() {
    if (toolWorks_.value() && !isWithdrawn_) {
        patienceEnds_ = std::chrono::steady_clock::now() + std::min(patience_, reasonTime);
        return say("");
    }
    toolEnded();
    say(bundle_.localizedString(std::exchange(isWithdrawn_, false) ? hasWithdrawn : hasEnded));
}

void ScreenSharingExplanation::toolEnded() {
    if (toolWorks_.value())
        toolWorks_.set(false);
}

void ScreenSharingExplanation::say(std::string sentence) {
    if (sentence == sentence_)
        return;
    sentence_ = std::move(sentence);
    mainQueue_.async([this, alive = std::weak_ptr(alive_)] {
        if (alive.lock())
            text_.set(sentence_);
    });
}

ScreenSharingExplanation::Identity ScreenSharingExplanation::identity() const {
    struct stat status {};
    if (::stat(reasonFile_.c_str(), &status) != 0)
        return std::nullopt;
    return std::tuple(status.st_dev, status.st_ino,
                      std::int64_t{status.st_ctim.tv_sec} * 1'000'000'000 + status.st_ctim.tv_nsec);
}

std::string ScreenSharingExplanation::reason() const {
    auto word = trimmed(readTextFile(reasonFile_, 256).value_or(""));
    for (const auto& reason : toolReasons) {
        if (reason.word == word)
            return bundle_.localizedString(reason.key);
    }
    return bundle_.localizedString(otherReason);
}

}  // namespace zelvo::platform
