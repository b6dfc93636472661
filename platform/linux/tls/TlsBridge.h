#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/tls/TlsConnection.h"

namespace zelvo::platform {

/// Carries bytes between a TLS connection and a socket of this machine, both ways, and holds few
/// of them: whoever does not read is not read from. One thread.
class TlsBridge {
  public:
    /// `fromFar` has come by the connection already. `ended` is called once, from the loop: one
    /// side is at its end, what it had said has been handed on, and the other one has ended, too.
    /// The bridge may not be destroyed in it.
    TlsBridge(EventLoop& loop, std::unique_ptr<TlsConnection> far, std::string fromFar,
              FileDescriptor near, std::function<void()> ended);

  private:
    void move();
    bool readFar();
    bool readNear();
    bool writeFar();
    bool writeNear();
    bool isOver() const;

    std::unique_ptr<TlsConnection> far_;
    FileDescriptor near_;
    std::function<void()> ended_;
    std::string toNear_;
    std::string toFar_;
    bool farIsGone_ = false;
    bool nearIsGone_ = false;
    bool hasSaidEnd_ = false;
    // Last: they end before what they watch.
    EventLoop::Watch farWatch_;
    EventLoop::Watch nearWatch_;
};

}  // namespace zelvo::platform
