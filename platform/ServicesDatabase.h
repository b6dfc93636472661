#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zelvo::platform {

/// The services database (services(5)). Any thread.
class ServicesDatabase {
  public:
    virtual ~ServicesDatabase() = default;

    /// The TCP port of a service, in host byte order.
    virtual std::optional<std::uint16_t> tcpPort(const std::string& service) const = 0;
};

}  // namespace zelvo::platform
