#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "platform/Observable.h"

namespace zelvo::platform {

class Bundle;
class MainQueue;
struct ViewerAbilities;

/// Why Screen Sharing is not on, as a sentence in the user's language: the enable tool leaves its
/// reason behind in a file when it fails, and takes it away when it does not. What is said anew is
/// said in a later turn. Main thread only.
class ScreenSharingExplanation {
  public:
    /// A reason that lies in the file already is an earlier run's and is passed over. A tool that
    /// has come to no end after `patience` is taken to have failed.
    ScreenSharingExplanation(MainQueue& mainQueue, const Bundle& bundle, std::string reasonFile,
                             std::chrono::seconds patience = std::chrono::seconds(60));
    ScreenSharingExplanation(const ScreenSharingExplanation&) = delete;
    ScreenSharingExplanation& operator=(const ScreenSharingExplanation&) = delete;

    /// Looks for a change. Costs one look at the file's identity.
    void update();
    /// The enable tool has been started.
    void toolStarted();
    /// The desktop asks the user, for whom no patience is too long: the server ends, if the answer
    /// is no.
    void desktopAsks();
    /// What it lets viewers do.
    void desktopLets(const ViewerAbilities& abilities);
    /// It does not show the screen any more: why the server ends next.
    void desktopWithdraws() { isWithdrawn_ = true; }
    /// The server was found to listen.
    void serverListens();
    /// The server has ended. Of one that had not listened yet the enable tool says why.
    void serverEnded();

    const Observable<std::string>& text() const { return text_; }
    /// What viewers cannot do while it is on.
    const Observable<std::string>& limits() const { return limits_; }
    /// Whether the enable tool has been started and has come to no end yet, good or bad.
    const Observable<bool>& toolWorks() const { return toolWorks_; }

  private:
    /// Device, inode and time of change; none without a file.
    using Identity = std::optional<std::tuple<std::uint64_t, std::uint64_t, std::int64_t>>;

    Identity identity() const;
    std::string reason() const;
    void say(std::string sentence);
    void toolEnded();

    MainQueue& mainQueue_;
    const Bundle& bundle_;
    const std::string reasonFile_;
    const std::chrono::seconds patience_;
    Identity seen_;
    bool isWithdrawn_ = false;
    std::chrono::steady_clock::time_point patienceEnds_;
    /// What is said, or will be in a later turn.
    std::string sentence_;
    Observable<std::string> text_;
    Observable<std::string> limits_;
    Observable<bool> toolWorks_;
    std::shared_ptr<void> alive_ = std::make_shared<int>();
};

}  // namespace zelvo::platform
