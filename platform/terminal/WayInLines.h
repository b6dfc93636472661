#pragma once

#include <functional>
#include <string>

#include "platform/Observable.h"
#include "platform/WayIn.h"

namespace zelvo::platform {

class Bundle;
class MainWindowModel;

/// What the user wants of relays, as a line when it changes, and the words that change it: in the
/// user's language or in English. Main thread only.
class WayInLines {
  public:
    /// All outlive this object.
    WayInLines(WayIn& wayIn, MainWindowModel& model, const Bundle& bundle,
               std::function<void(const std::string&)> line);
    WayInLines(const WayInLines&) = delete;
    WayInLines& operator=(const WayInLines&) = delete;

    /// Wants that, or, where it was wanted, a relay only where it is needed.
    void change(RelayUse wanted);
    /// Says what is wanted now.
    void tell() const;
    /// Nothing where the line is no such word.
    void takeLine(const std::string& typed);

  private:
    WayIn& wayIn_;
    MainWindowModel& model_;
    const Bundle& bundle_;
    std::function<void(const std::string&)> line_;
    Subscription changes_;
};

}  // namespace zelvo::platform
