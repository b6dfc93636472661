#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "server/gate/ViewerMessages.h"
#include "server/gate/ViewerStream.h"

namespace zelvo::server {

/// A viewer who is inside: what it says goes to the VNC side, and what that says to it, over a pair
/// of sockets. The VNC side never waits for a viewer: what the network does not take is kept here,
/// up to a limit, and who takes nothing for too long is put out.
class Guest {
  public:
    using Time = std::chrono::steady_clock::time_point;
    using Ended = std::function<void(platform::gate::Ending)>;

    /// More than a whole screen of 3840x2160 as it is.
    static constexpr std::size_t mostUnsent = 40 * 1024 * 1024;
    static constexpr std::chrono::seconds longestStandstill{30};

    /// `ended` is called once, from the loop, when the viewer has gone or is to be put out; the
    /// guest may be destroyed in it.
    Guest(platform::EventLoop& loop, ViewerStream stream, Ended ended);
    Guest(const Guest&) = delete;
    Guest& operator=(const Guest&) = delete;

    /// Whether keys, pointer and clipboard of this viewer pass, from the next message on. They do
    /// not at first.
    void setInputPasses(bool passes) { messages_.setInputPasses(passes); }

    /// Whether it came with the link's key; then it can be told what it is given and may do.
    bool isSealed() const { return stream_.line() != nullptr; }
    void tell(const sealing::Standing& standing);

    /// Hands the stream over, of which nothing is read any more: sealed, with this said last. Of no
    /// use afterwards.
    ViewerStream putOut(sealing::Farewell reason);

    /// The VNC side's end, for an RFB server without security of its own; what the viewer has said
    /// already is there. Once. Empty where there are no descriptors left.
    platform::FileDescriptor takeServerEnd() { return std::move(serverEnd_); }

    /// When this viewer will be put out unless something moves; Time::max() where all has gone.
    Time deadline() const { return stream_.unsent() > 0 ? standstillUntil_ : Time::max(); }

  private:
    void viewerIsReady(std::uint32_t events);
    void serverIsReady(std::uint32_t events);
    /// Why there is nothing more to read, if so.
    std::optional<platform::gate::Ending> readViewer();
    /// Of a viewer who sends no more.
    platform::gate::Ending readToTheEnd();
    platform::gate::Ending endingOfViewer() const;
    bool readServer();
    bool flushToServer();
    void watch();
    void end(platform::gate::Ending ending);

    ViewerStream stream_;
    // Set by what makes server_, and so declared before it.
    platform::FileDescriptor serverEnd_;
    platform::FileDescriptor server_;
    const Ended ended_;
    /// What is still to come of version and security, which both sides have behind them: the VNC
    /// side's to us, and that of an opener who is greeted only now.
    std::string_view fromServer_;
    std::string_view fromViewer_;
    ViewerMessages messages_;
    std::string toServer_;
    Time standstillUntil_;
    platform::EventLoop::Watch viewerWatch_;
    platform::EventLoop::Watch serverWatch_;
};

}  // namespace zelvo::server
