#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace zelvo::platform {

/// Message digests. Any thread.
class MessageDigest {
  public:
    virtual ~MessageDigest() = default;
    /// MD5 (RFC 1321).
    virtual std::array<std::byte, 16> md5(std::span<const std::byte> bytes) const = 0;
};

}  // namespace zelvo::platform
