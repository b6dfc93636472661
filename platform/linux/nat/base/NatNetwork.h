#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/nat/base/HttpResponseReader.h"
#include "platform/linux/nat/base/NatClock.h"
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
/// A router by "192.0.2.1", or with a port of its own.
std::optional<Ipv4Endpoint> parseEndpoint(const std::string& text);

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

class SearchReceiver {
  public:
    virtual ~SearchReceiver() = default;

    virtual void found(const Ipv4Endpoint& from, ByteView datagram) = 0;
};

/// A UDP socket that may ask anybody, and hears anybody, or whoever speaks to its group.
class SearchPort {
  public:
    virtual ~SearchPort() = default;

    /// A group is asked on the interface of the local address alone.
    virtual void send(const Ipv4Endpoint& to, ByteView datagram) = 0;
};

/// One HTTP request under way. Destroying it ends the connection, and nothing more is heard of it.
class HttpExchange {
  public:
    /// Nothing for a connection that failed, or an answer that is none.
    using Done = std::function<void(const std::optional<HttpResponse>&)>;

    virtual ~HttpExchange() = default;
};

/// The clock and the sockets that the conversations with a router need. All calls, and all calls
/// back, on one thread. A local address is that from which the router is to see us, since routers
/// know a mapping's owner by it.
class NatNetwork {
  public:
    virtual ~NatNetwork() = default;

    virtual NatTime now() const = 0;
    /// Nothing when there is no way to the peer. The receiver outlives the port.
    virtual std::unique_ptr<DatagramPort> connect(const Ipv4Endpoint& peer,
                                                  std::uint32_t localAddress,
                                                  DatagramReceiver& receiver) = 0;
    /// Nothing when that is no address of this host. The receiver outlives the port.
    virtual std::unique_ptr<SearchPort> search(std::uint32_t localAddress,
                                               SearchReceiver& receiver) = 0;
    /// Hears what is said to the group. Nothing when it cannot be heard. The receiver outlives the
    /// port.
    virtual std::unique_ptr<SearchPort> join(const Ipv4Endpoint& group, std::uint32_t localAddress,
                                             SearchReceiver& receiver) = 0;
    /// Sends a whole request and calls `done` once, later, unless it is destroyed before. It sets
    /// itself no time limit.
    virtual std::unique_ptr<HttpExchange> exchange(const Ipv4Endpoint& server,
                                                   std::uint32_t localAddress, std::string request,
                                                   HttpExchange::Done done) = 0;
};

}  // namespace zelvo::platform
