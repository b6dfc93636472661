#pragma once

#include <cstdint>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/NatNetwork.h"

struct sockaddr_in;

namespace zelvo::platform {

sockaddr_in socketAddress(const Ipv4Endpoint& endpoint);

/// Gives the socket its local address, 0 for any; false when that is no address of this host. A
/// peer in the network of that address is spoken to on its interface alone, whichever the kernel
/// prefers: where two lead to one router, the answers come in there.
bool bindLocally(const FileDescriptor& socket, std::uint32_t localAddress,
                 const Ipv4Endpoint& peer);

}  // namespace zelvo::platform
