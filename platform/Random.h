#pragma once

#include <cstdint>

namespace zelvo::platform {

/// Random numbers. Any thread.
class Random {
  public:
    virtual ~Random() = default;
    /// Uniform over all 32-bit values, from the system's generator.
    virtual std::uint32_t uniform32() = 0;
};

}  // namespace zelvo::platform
