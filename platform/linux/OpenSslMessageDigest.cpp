#include "platform/linux/OpenSslMessageDigest.h"

#include <openssl/evp.h>

namespace zelvo::platform {

std::array<std::byte, 16> OpenSslMessageDigest::md5(std::span<const std::byte> bytes) const {
    std::array<std::byte, 16> digest{};
    unsigned length = 0;
    ::EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()),
                 &length, ::EVP_md5(), nullptr);
    return digest;
}

}  // namespace zelvo::platform
