#pragma once

#include <functional>
#include <optional>
#include <string>

#include "opener/channel/HostLine.h"
#include "platform/linux/base/EventLoop.h"
#include "sealing/SealedLine.h"

namespace zelvo::opener {

/// Carries bytes between a host, its sealed line and a viewer, never holding more of them than a
/// little: whoever does not read is not read from. One thread.
class LinePump {
  public:
    struct Told {
        std::function<void(const std::string& digits)> opened;
        std::function<void(const sealing::Standing&)> stands;
        std::function<void()> isBack;
        std::function<void(platform::FileDescriptor)> rfbBegan;
    };

    /// The loop outlives this object.
    LinePump(platform::EventLoop& loop, platform::FileDescriptor host, sealing::SealedLine line,
             Told told);

    bool isProven() const { return line_.state() != sealing::SealedLine::State::Proving; }
    /// How it ended; none while it goes on.
    std::optional<LineEnding> ending() const;
    /// Says goodbye where the host has proven itself. From then on the line is of no other use.
    void leave();
    /// Everything is said, and heard.
    bool isOver() const;

  private:
    void hostIsReady(std::uint32_t events);
    void viewerIsReady(std::uint32_t events);
    void passOn();
    void beginRfb();
    void writeToHost();
    void writeToViewer();
    void closeViewer();
    void choose();

    platform::EventLoop& loop_;
    platform::FileDescriptor host_;
    sealing::SealedLine line_;
    Told told_;
    bool wasProven_ = false;
    bool wasBack_ = false;
    bool hostIsGone_ = false;
    std::optional<sealing::Standing> standing_;
    std::string toHost_;
    std::string toViewer_;
    bool rfbHasBegun_ = false;
    platform::FileDescriptor viewer_;
    // Last: they end before what they watch.
    std::optional<platform::EventLoop::Watch> hostWatch_;
    std::optional<platform::EventLoop::Watch> viewerWatch_;
};

}  // namespace zelvo::opener
