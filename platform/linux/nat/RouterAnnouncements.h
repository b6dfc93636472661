#pragma once

#include <functional>
#include <map>
#include <memory>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/PollLoop.h"
#include "platform/linux/nat/upnp/SsdpMessage.h"

namespace zelvo::platform {

/// Tells from what one UPnP device announces whether it has been started anew.
class RestartDetector {
  public:
    bool isRestart(const SsdpMessage& message);

  private:
    bool left_ = false;
    /// The devices of one router, by their location, with their boot counts.
    std::map<std::string, std::string> known_;
};

/// Hears what the router tells all hosts of its network without being asked: NAT-PMP and PCP
/// announcements (RFC 6886 3.2.1, RFC 6887 14.1) and UPnP notices. Other senders are not heard.
class RouterAnnouncements {
  public:
    using PortControl = std::function<void(ByteView datagram)>;

    RouterAnnouncements(PollLoop& loop, std::uint32_t router, std::uint32_t localAddress,
                        PortControl portControl, std::function<void()> restarted);

  private:
    void readPortControl();
    void readNotices();

    std::uint32_t router_;
    PortControl portControl_;
    std::function<void()> restarted_;
    RestartDetector detector_;
    FileDescriptor portControlSocket_;
    FileDescriptor noticeSocket_;
    std::unique_ptr<PollLoop::Watch> portControlWatch_;
    std::unique_ptr<PollLoop::Watch> noticeWatch_;
};

}  // namespace zelvo::platform
