#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/nat/base/NatNetwork.h"
#include "platform/linux/nat/base/RouterMapping.h"

namespace zelvo::platform {

/// What a router says when it is asked whether it would map a port, and is not asked to.
struct RouterFacts {
    /// Host byte order; 0 where there is no way to one.
    std::uint32_t router = 0;
    /// The protocols by which it would.
    std::vector<std::string> protocols;
    /// Host byte order; 0 where it does not tell, or has none.
    std::uint32_t externalAddress = 0;
    /// Where there is no such protocol, the most that was heard by any.
    NatFailure failure = NatFailure::Silent;
};

/// Waits until all protocols have answered, at most for the patience. Blocks; any thread. `router`
/// is "address" or "address:port", which alone is asked then; empty for the gateway of the default
/// route.
RouterFacts inquireOfRouter(const std::string& router, std::chrono::milliseconds patience);

}  // namespace zelvo::platform
