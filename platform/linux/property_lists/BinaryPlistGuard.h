#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace zelvo::platform {

struct BinaryPlistLimits {
    int nesting = 64;
    /// Values and bytes of content once every shared object is copied to each place that names it.
    std::size_t values = std::size_t{1} << 18;
    std::size_t contentBytes = std::size_t{4} << 20;
};

/// Why the bytes are not a binary property list ("bplist00") within the limits; empty when they
/// are. Every object that can be reached is looked at, so that libplist meets only offsets, counts
/// and nesting that hold.
std::string refuseBinaryPlist(std::span<const std::byte> bytes,
                              const BinaryPlistLimits& limits = {});

}  // namespace zelvo::platform
