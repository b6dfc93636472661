#include "sealing/Primitives.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

namespace zelvo::sealing {

namespace {

const unsigned char* raw(std::string_view bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

void mustHold(bool computed) {
    if (!computed)
        std::abort();
}

std::string digest(const EVP_MD* kind, std::string_view bytes) {
    std::string hash(static_cast<std::size_t>(EVP_MD_get_size(kind)), '\0');
    mustHold(EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(hash.data()),
                        nullptr, kind, nullptr) == 1);
    return hash;
}

void hmac(std::string_view key, std::string_view text, Key& out) {
    mustHold(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), raw(text), text.size(),
                  out.bytes().data(), nullptr) != nullptr);
}

struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using PKey = std::unique_ptr<EVP_PKEY, FreeKey>;

struct FreeAgreement {
    void operator()(EVP_PKEY_CTX* agreement) const { EVP_PKEY_CTX_free(agreement); }
};

PKey pairOf(const Key& privateKey) {
    return PKey(EVP_PKEY_new_raw_private_key(EVP_PKEY_X25519, nullptr, privateKey.bytes().data(),
                                             Key::size));
}

}  // namespace

void wipe(std::span<unsigned char> bytes) {
    OPENSSL_cleanse(bytes.data(), bytes.size());
}

std::string sha256(std::string_view bytes) {
    return digest(EVP_sha256(), bytes);
}

std::string sha1(std::string_view bytes) {
    return digest(EVP_sha1(), bytes);
}

void hkdf(std::string_view salt, std::string_view secret, std::string_view info,
          std::span<unsigned char> out) {
    Key extracted;
    hmac(salt, secret, extracted);
    Key block;
    std::string text;
    for (char count = 1; !out.empty(); ++count) {
        if (count > 1)
            text = block.view();
        text += info;
        text += count;
        hmac(extracted.view(), text, block);
        wipe({reinterpret_cast<unsigned char*>(text.data()), text.size()});
        const auto size = std::min(out.size(), Key::size);
        std::copy_n(block.bytes().begin(), size, out.begin());
        out = out.subspan(size);
    }
}

void fillWithRandom(std::span<unsigned char> bytes) {
    mustHold(RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1);
}

std::string publicHalf(const Key& privateKey) {
    const auto pair = pairOf(privateKey);
    std::string half(publicKeySize, '\0');
    auto size = half.size();
    mustHold(pair && EVP_PKEY_get_raw_public_key(
                         pair.get(), reinterpret_cast<unsigned char*>(half.data()), &size) == 1);
    return half;
}

bool agree(const Key& privateKey, std::string_view peersHalf, Key& agreed) {
    const auto pair = pairOf(privateKey);
    const PKey peer(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_X25519, nullptr, raw(peersHalf), peersHalf.size()));
    const std::unique_ptr<EVP_PKEY_CTX, FreeAgreement> agreement(
        pair ? EVP_PKEY_CTX_new(pair.get(), nullptr) : nullptr);
    auto size = Key::size;
    // The last of these refuses halves of small order, whose secret everybody knows.
    return peer && agreement && EVP_PKEY_derive_init(agreement.get()) == 1 &&
           EVP_PKEY_derive_set_peer(agreement.get(), peer.get()) == 1 &&
           EVP_PKEY_derive(agreement.get(), agreed.bytes().data(), &size) == 1 && size == Key::size;
}

bool isSame(std::string_view one, std::string_view other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace zelvo::sealing
