#include "relay/tickets/Ed25519.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <utility>

namespace zelvo::relay {
namespace {

using File = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Digest = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// Nobody is there to type a passphrase.
int noPassphrase(char*, int, int, void*) {
    return 0;
}

}  // namespace

Ed25519::Ed25519(evp_pkey_st* key) : key_(key, &EVP_PKEY_free) {}

std::optional<Ed25519> Ed25519::readPrivate(const std::string& file, std::string& error) {
    const File pem(BIO_new_file(file.c_str(), "r"), &BIO_free);
    auto* key = pem ? PEM_read_bio_PrivateKey(pem.get(), nullptr, &noPassphrase, nullptr) : nullptr;
    if (key && EVP_PKEY_base_id(key) == EVP_PKEY_ED25519)
        return Ed25519(key);
    EVP_PKEY_free(key);
    error = file + ": no private key of Ed25519";
    return std::nullopt;
}

std::vector<Ed25519> Ed25519::readPublic(const std::string& file, std::string& error) {
    std::vector<Ed25519> keys;
    const File pem(BIO_new_file(file.c_str(), "r"), &BIO_free);
    while (pem) {
        auto* key = PEM_read_bio_PUBKEY(pem.get(), nullptr, &noPassphrase, nullptr);
        if (!key)
            break;
        keys.push_back(Ed25519(key));
        if (EVP_PKEY_base_id(key) != EVP_PKEY_ED25519) {
            keys.clear();
            break;
        }
    }
    if (keys.empty())
        error = file + ": no public key of Ed25519";
    return keys;
}

std::string Ed25519::sign(std::string_view message) const {
    const Digest digest(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    std::string signature(SignatureBytes, '\0');
    auto size = signature.size();
    if (EVP_DigestSignInit(digest.get(), nullptr, nullptr, nullptr, key_.get()) != 1 ||
        EVP_DigestSign(digest.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                       bytesOf(message), message.size()) != 1)
        return {};
    return signature;
}

bool Ed25519::hasSigned(std::string_view message, std::string_view signature) const {
    const Digest digest(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    return EVP_DigestVerifyInit(digest.get(), nullptr, nullptr, nullptr, key_.get()) == 1 &&
           EVP_DigestVerify(digest.get(), bytesOf(signature), signature.size(), bytesOf(message),
                            message.size()) == 1;
}

}  // namespace zelvo::relay
