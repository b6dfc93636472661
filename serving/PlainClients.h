#pragma once

#include <cstddef>
#include <cstdint>
#include <list>

namespace zelvo::serving {

/// The few that may be connected to a server without TLS. For one more, whoever has asked nothing
/// for longest gives way: who holds all places in silence keeps nobody out that asks at once. On
/// one loop's thread.
class PlainClients {
  public:
    explicit PlainClients(std::size_t most) : most_(most) {}

    /// One has connected by the socket, which is the loop's.
    void come(int socket);
    void ask(int socket);

  private:
    struct Client {
        int socket;
        std::uint64_t cookie;  ///< the kernel's; no other socket ever has it
    };

    std::list<Client>::iterator find(int socket);

    const std::size_t most_;
    std::list<Client> clients_;  ///< and some that are gone; who has been silent for longest first
};

}  // namespace zelvo::serving
