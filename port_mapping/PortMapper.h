#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/NatPortMapping.h"

namespace zelvo {

/// Domain of the errors that a PortMapper makes; their codes are those of the mapping service.
inline constexpr const char* PortMapperErrorDomain = "app.zelvo.PortMapping";

/// A reply of the mapping service as the mapper handles it.
struct DNSServiceNATResponse {
    platform::NatPortMappingReference* sdRef = nullptr;
    std::uint32_t flags = 0;
    std::uint32_t interfaceIndex = 0;
    std::int32_t errorCode = 0;
    /// IPv4, in network byte order.
    std::uint32_t externalAddress = 0;
    std::uint32_t protocol = 0;
    /// Both in host byte order.
    std::uint16_t internalPort = 0;
    std::uint16_t externalPort = 0;
    /// Seconds.
    std::uint32_t ttl = 0;
};

/// Asks the router to forward one external port, TCP and UDP, to a local port, and reports once
/// whether it does. The mapping lives until `close` or destruction. Main thread only.
class PortMapper {
  public:
    /// Success, the router's external address, the granted external port, and the error exactly
    /// when there was no success. Where the router was never asked, the address is absent.
    using Completion =
        std::function<void(bool success, std::optional<std::string> externalAddress,
                           std::uint16_t externalPort, std::optional<platform::Error> error)>;

    explicit PortMapper(platform::NatPortMapping& mapping);
    ~PortMapper();
    PortMapper(const PortMapper&) = delete;
    PortMapper& operator=(const PortMapper&) = delete;

    /// Opens a request; none may be open. A request that the mapping service refuses outright calls
    /// the completion before this returns; otherwise the first reply does, and a request closed
    /// before its reply never does.
    void tryMappingPort(std::uint16_t internalPort, std::uint16_t toExternalPort,
                        Completion completion);
    /// Handles one reply.
    void gotResponse(const DNSServiceNATResponse& response);
    /// Withdraws the mapping, if one is open. A completion that waits stays, and is never called.
    void close();
    /// Closes, and lets go of a completion that waits: for an owner that the completion keeps
    /// alive.
    void abandon();

    /// The open request; null when there is none.
    platform::NatPortMappingReference* service() const { return service_.get(); }
    /// Of the last request, in host byte order.
    std::uint16_t internalPort() const { return internalPort_; }
    /// Of the latest reply, in host byte order.
    std::uint16_t externalPort() const { return externalPort_; }
    /// Dotted decimal, from the reply that answered a request.
    const std::optional<std::string>& externalIPAddress() const { return externalIPAddress_; }
    /// The completion that waits for the first reply; empty when none does.
    const Completion& portMapperCompletion() const { return portMapperCompletion_; }

  private:
    platform::NatPortMapping& mapping_;
    std::unique_ptr<platform::NatPortMappingReference> service_;
    std::uint16_t internalPort_ = 0;
    std::uint16_t externalPort_ = 0;
    std::optional<std::string> externalIPAddress_;
    Completion portMapperCompletion_;
};

}  // namespace zelvo
