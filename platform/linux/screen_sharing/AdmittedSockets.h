#pragma once

#include <functional>

#include "platform/SocketTable.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"

namespace zelvo::platform {

class ServicesDatabase;

/// The sockets of another table, but that of the established connections in whose line the VNC
/// port's number stands, those of viewers who have been let in alone are listed as such. The rest
/// are listed as still being made (SYN_RCVD): of a viewer who waits there is no more so far than a
/// question, and a number within another port's is no viewer, though a search would find it.
class AdmittedSockets : public SocketTable {
  public:
    struct Viewers {
        /// Whether there is a screen server that knows.
        std::function<bool()> areKnown;
        std::function<bool(const gate::Peer&)> isInside;
    };

    AdmittedSockets(const SocketTable& sockets, const ServicesDatabase& services, Viewers viewers);

    SocketListing tcpSockets(SocketFamily family, SocketState state) const override;

  private:
    const SocketTable& sockets_;
    const ServicesDatabase& services_;
    const Viewers viewers_;
};

}  // namespace zelvo::platform
