#pragma once

#include <cstdint>
#include <optional>

namespace zelvo::platform {

/// The way to a router. Host byte order.
struct RouterRoute {
    std::uint32_t router = 0;
    /// This host's address on that way.
    std::uint32_t localAddress = 0;
    /// 0 where nobody asked.
    int interfaceIndex = 0;

    friend bool operator==(const RouterRoute&, const RouterRoute&) = default;
};

/// The ways that lead out of this host, as they are at the moment of the question.
class Routes {
  public:
    virtual ~Routes() = default;

    /// The default route with the lowest metric that has a gateway; nothing without one.
    virtual std::optional<RouterRoute> defaultRoute() const = 0;
    /// The way to a router that is known already.
    virtual std::optional<RouterRoute> to(std::uint32_t router) const = 0;
    /// The same; nothing where another router stands between.
    virtual std::optional<RouterRoute> toNeighbour(std::uint32_t router) const = 0;
    virtual bool isOwnAddress(std::uint32_t address) const = 0;
};

}  // namespace zelvo::platform
