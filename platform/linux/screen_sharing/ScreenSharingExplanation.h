#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "platform/Observable.h"

namespace zelvo::platform {

class Bundle;
class MainQueue;

/// Why Screen Sharing is not on, as a sentence in the user's language: the enable tool leaves its
/// reason behind in a file when it fails, and takes it away when it does not. Main thread only.
class ScreenSharingExplanation {
  public:
    /// A reason that lies in the file already is an earlier run's and is passed over.
    ScreenSharingExplanation(MainQueue& mainQueue, const Bundle& bundle, std::string reasonFile);
    ScreenSharingExplanation(const ScreenSharingExplanation&) = delete;
    ScreenSharingExplanation& operator=(const ScreenSharingExplanation&) = delete;

    /// Looks for a change, which is told in a later turn. Costs one look at the file's identity.
    void update();

    const Observable<std::string>& text() const { return text_; }

  private:
    /// Device, inode and time of change; none without a file.
    using Identity = std::optional<std::tuple<std::uint64_t, std::uint64_t, std::int64_t>>;

    Identity identity() const;
    std::string reason() const;

    MainQueue& mainQueue_;
    const Bundle& bundle_;
    const std::string reasonFile_;
    Identity seen_;
    Observable<std::string> text_;
    std::shared_ptr<void> alive_ = std::make_shared<int>();
};

}  // namespace zelvo::platform
