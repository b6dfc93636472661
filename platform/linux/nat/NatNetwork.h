#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/nat/NatClock.h"
#include "platform/linux/nat/codec/ByteOrder.h"

namespace zelvo::platform {

/// Host byte order.
struct Ipv4Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    friend bool operator==(const Ipv4Endpoint&, const Ipv4Endpoint&) = default;
};

/// "192.0.2.1".
std::string addressText(std::uint32_t address);
/// "192.0.2.1:5351".
std::string endpointText(const Ipv4Endpoint& endpoint);

class DatagramReceiver {
  public:
    virtual ~DatagramReceiver() = default;

    virtual void received(ByteView datagram) = 0;
    /// The peer's host says that nobody listens there.
    virtual void refused() = 0;
};

/// A UDP socket that is connected: nobody but the peer is heard.
class DatagramPort {
  public:
    virtual ~DatagramPort() = default;

    /// Datagrams may be lost, and this one is no exception when it cannot be sent.
    virtual void send(ByteView datagram) = 0;
    virtual std::uint32_t localAddress() const = 0;
};

/// The clock and the sockets that the conversations with a router need. All calls, and all calls
/// back, on one thread.
class NatNetwork {
  public:
    virtual ~NatNetwork() = default;

    virtual NatTime now() const = 0;
    /// Nothing when there is no way to the peer. The receiver outlives the port.
    virtual std::unique_ptr<DatagramPort> connect(const Ipv4Endpoint& peer,
                                                  DatagramReceiver& receiver) = 0;
};

}  // namespace zelvo::platform
