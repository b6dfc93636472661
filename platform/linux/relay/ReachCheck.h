#pragma once

#include <QObject>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Observable.h"
#include "platform/PropertyList.h"

namespace zelvo::platform {

class Bundle;
class Log;

/// Whether people get through the port that the router has opened. The sharing service tries it
/// once when the link is registered, and is asked what came of it some seconds later. Main thread
/// only.
class ReachCheck {
  public:
    using Reply = std::optional<PropertyList>;
    struct Options {
        /// Longer than the service tries.
        std::chrono::milliseconds after = std::chrono::seconds(6);
        /// Asks the service for the link that is there; answers once at most, later.
        std::function<void(std::function<void(const Reply&)>)> ask;
    };

    /// All outlive this object.
    ReachCheck(const Bundle& bundle, Log& log, Options options);
    ReachCheck(const ReachCheck&) = delete;
    ReachCheck& operator=(const ReachCheck&) = delete;

    /// The router's port leads to this one of ours; host byte order.
    void portIs(std::uint16_t port) { port_ = port; }
    void linkIsRegistered();
    /// There is another way now, or somebody has come by this one.
    void forget();

    /// Why nobody gets through, as a sentence in the user's language; empty where they do, or
    /// nothing is known. Written when it changes.
    const Observable<std::string>& text() const { return text_; }

  private:
    void hear(const Reply& reply);
    void tell(bool isBarred);

    const Bundle& bundle_;
    Log& log_;
    const Options options_;
    std::uint16_t port_ = 0;
    Observable<std::string> text_;
    /// Of the link that is there; what comes for an earlier one finds it gone.
    std::unique_ptr<QObject> round_;
};

}  // namespace zelvo::platform
