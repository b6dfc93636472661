#include "platform/linux/machine/OpenSslMessageDigest.h"

#include <openssl/evp.h>
#include <openssl/provider.h>

#include <memory>
#include <stdexcept>

namespace zelvo::platform {

namespace {

struct Release {
    void operator()(OSSL_LIB_CTX* library) const { OSSL_LIB_CTX_free(library); }
    void operator()(OSSL_PROVIDER* provider) const { OSSL_PROVIDER_unload(provider); }
    void operator()(EVP_MD* digest) const { EVP_MD_free(digest); }
};

}  // namespace

std::array<std::byte, 16> OpenSslMessageDigest::md5(std::span<const std::byte> bytes) const {
    // A library of its own: a system that allows approved algorithms only has no MD5 in the common
    // one, and nothing here protects anything.
    std::unique_ptr<OSSL_LIB_CTX, Release> library(OSSL_LIB_CTX_new());
    std::unique_ptr<OSSL_PROVIDER, Release> provider(OSSL_PROVIDER_load(library.get(), "default"));
    std::unique_ptr<EVP_MD, Release> algorithm(EVP_MD_fetch(library.get(), "MD5", nullptr));
    std::array<std::byte, 16> digest{};
    if (!algorithm ||
        EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()),
                   nullptr, algorithm.get(), nullptr) != 1)
        throw std::runtime_error("OpenSSL has no MD5");
    return digest;
}

}  // namespace zelvo::platform
