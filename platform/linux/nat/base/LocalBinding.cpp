#include "platform/linux/nat/base/LocalBinding.h"

#include <netinet/in.h>
#include <sys/socket.h>

namespace zelvo::platform {

sockaddr_in socketAddress(const Ipv4Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(endpoint.address);
    return address;
}

bool bindLocally(const FileDescriptor& socket, const Ipv4Endpoint& local) {
    // Not to the interface of that address as well: where two lie in one network, the answers come
    // in by either.
    const sockaddr_in address = socketAddress(local);
    return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace zelvo::platform
