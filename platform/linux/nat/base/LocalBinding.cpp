#include "platform/linux/nat/base/LocalBinding.h"

#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>

namespace zelvo::platform {

namespace {

std::uint32_t addressOf(const sockaddr* address) {
    sockaddr_in ipv4{};
    if (address && address->sa_family == AF_INET) {
        std::memcpy(&ipv4, address, sizeof ipv4);
    }
    return ntohl(ipv4.sin_addr.s_addr);
}

}  // namespace

sockaddr_in socketAddress(const Ipv4Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(endpoint.address);
    return address;
}

bool bindLocally(const FileDescriptor& socket, std::uint32_t localAddress,
                 const Ipv4Endpoint& peer) {
    const sockaddr_in local = socketAddress({localAddress, 0});
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        return false;
    }
    ifaddrs* list = nullptr;
    if (localAddress == 0 || getifaddrs(&list) != 0) {
        return true;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (addressOf(entry->ifa_addr) == localAddress &&
            ((peer.address ^ localAddress) & addressOf(entry->ifa_netmask)) == 0) {
            // Kernels before 5.7 allow it to root alone; there it is as good as the routes are.
            setsockopt(socket.get(), SOL_SOCKET, SO_BINDTODEVICE, entry->ifa_name,
                       static_cast<socklen_t>(std::strlen(entry->ifa_name)));
        }
    }
    return true;
}

}  // namespace zelvo::platform
