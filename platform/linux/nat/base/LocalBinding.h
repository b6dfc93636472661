#pragma once

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/NatNetwork.h"

struct sockaddr_in;

namespace zelvo::platform {

sockaddr_in socketAddress(const Ipv4Endpoint& endpoint);

/// False when that is no address of this host, or its port is taken. 0 stands for any.
bool bindLocally(const FileDescriptor& socket, const Ipv4Endpoint& local);

}  // namespace zelvo::platform
