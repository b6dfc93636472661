#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "server/screen/Screen.h"

namespace zelvo::server {

struct ScreenResult {
    /// Null where there is none.
    std::unique_ptr<Screen> screen;
    /// Why there is none: the word that the enable tool passes on, and a sentence for the log.
    std::string word;
    std::string sentence;
};

/// A desktop that is to be shown. Some ask the user first, who may take minutes. All on one thread;
/// nothing blocks for long. Destroying it before there is a result takes back what it asked.
class ScreenOpening {
  public:
    virtual ~ScreenOpening() = default;

    /// Goes as far as it can at once. Nothing is called any more once there is a result.
    virtual std::optional<ScreenResult> proceed() = 0;
    /// Readable when `proceed` has something to do. Only after it had no result.
    virtual int descriptor() const = 0;
    /// Whether the desktop asks the user now.
    virtual bool asksUser() const = 0;
};

/// The opening of a desktop that asks nobody.
class OpenedAtOnce : public ScreenOpening {
  public:
    explicit OpenedAtOnce(ScreenResult result) : result_(std::move(result)) {}

    std::optional<ScreenResult> proceed() override { return std::move(result_); }
    int descriptor() const override { return -1; }
    bool asksUser() const override { return false; }

  private:
    ScreenResult result_;
};

}  // namespace zelvo::server
