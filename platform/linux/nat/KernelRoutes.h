#pragma once

#include "platform/linux/nat/Routes.h"

namespace zelvo::platform {

class KernelRoutes final : public Routes {
  public:
    std::optional<RouterRoute> defaultRoute() const override;
    std::optional<RouterRoute> to(std::uint32_t router) const override;
    std::optional<RouterRoute> toNeighbour(std::uint32_t router) const override;
    bool isOwnAddress(std::uint32_t address) const override;
};

}  // namespace zelvo::platform
