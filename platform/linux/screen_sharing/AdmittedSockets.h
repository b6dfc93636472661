#pragma once

#include <functional>

#include "platform/SocketTable.h"
#include "platform/linux/screen_sharing/messages/GateMessage.h"

namespace zelvo::platform {

class ServicesDatabase;

/// The sockets of another table, but that a connection to the VNC port whose viewer has not been
/// let in is listed as one that is still being made (SYN_RCVD): so far there is no more of it than
/// a question.
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
