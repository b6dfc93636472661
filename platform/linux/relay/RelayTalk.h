#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/tls/TlsConnection.h"

namespace zelvo::platform {

/// A connection to a relay for as long as heads and lines are spoken on it. May not be destroyed in
/// what it calls.
class RelayTalk {
  public:
    struct Handlers {
        /// False for good where nothing more is to be read.
        std::function<bool(std::string_view)> heard;
        std::function<void()> ended;
    };

    RelayTalk(EventLoop& loop, std::unique_ptr<TlsConnection> connection, std::string firstWords,
              Handlers handlers);

    /// False where the relay has taken too little of what was said before; the talk is to end then.
    [[nodiscard]] bool say(const std::string& text);
    /// Of no use afterwards.
    std::unique_ptr<TlsConnection> release();

  private:
    void move();

    std::unique_ptr<TlsConnection> connection_;
    const Handlers handlers_;
    std::string unsent_;
    bool isOver_ = false;
    // Last: it ends before what it watches.
    std::unique_ptr<EventLoop::Watch> watch_;
};

}  // namespace zelvo::platform
