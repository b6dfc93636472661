#pragma once

#include <chrono>
#include <cstdint>

namespace zelvo::service {

/// Seconds since 1970.
using Moment = std::int64_t;

namespace life {

inline constexpr Moment seconds(std::chrono::seconds span) {
    return span.count();
}

/// An available link whose host has been silent for longer leads nowhere any more.
inline constexpr Moment AvailableFor = seconds(std::chrono::hours(48));
/// After this silence nobody comes back for the link.
inline constexpr Moment KnownFor = seconds(std::chrono::hours(24 * 30));
/// Signs closer to each other than this are one, so that asking often writes nothing.
inline constexpr Moment SignEvery = seconds(std::chrono::hours(1));

}  // namespace life
}  // namespace zelvo::service
