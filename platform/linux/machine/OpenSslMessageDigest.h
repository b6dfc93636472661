#pragma once

#include "platform/MessageDigest.h"

namespace zelvo::platform {

/// By OpenSSL's libcrypto. Where that has MD5 switched off (FIPS mode) the digest is all zeros.
class OpenSslMessageDigest : public MessageDigest {
  public:
    std::array<std::byte, 16> md5(std::span<const std::byte> bytes) const override;
};

}  // namespace zelvo::platform
