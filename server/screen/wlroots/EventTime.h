#pragma once

#include <chrono>
#include <cstdint>

namespace zelvo::server {

/// When an event is, in milliseconds of a clock that never goes back.
inline std::uint32_t eventTime() {
    using namespace std::chrono;
    return static_cast<std::uint32_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace zelvo::server
