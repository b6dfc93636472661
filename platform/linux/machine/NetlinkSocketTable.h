#pragma once

#include <utility>

#include "platform/SocketTable.h"
#include "platform/linux/netlink/NetlinkQuestion.h"

namespace zelvo::platform {

/// The kernel's TCP sockets through sock_diag(7). The queues are always given as 0, so that their
/// digits are never taken for a port; an IPv6 address has its zone left out, and an IPv4 address
/// mapped into IPv6 (RFC 4291, section 2.5.5.2) is written as IPv4.
class NetlinkSocketTable : public SocketTable {
  public:
    explicit NetlinkSocketTable(NetlinkOpener open = openNetlink) : open_(std::move(open)) {}

    SocketListing tcpSockets(SocketFamily family, SocketState state) const override;

  private:
    const NetlinkOpener open_;
};

}  // namespace zelvo::platform
