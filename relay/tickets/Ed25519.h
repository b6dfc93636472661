#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct evp_pkey_st;

namespace zelvo::relay {

/// A key of Ed25519 (RFC 8032), private or public. Any thread.
class Ed25519 {
  public:
    static constexpr std::size_t SignatureBytes = 64;

    /// The private key in a PEM file. Nothing, with the reason in error, when there is none.
    static std::optional<Ed25519> readPrivate(const std::string& file, std::string& error);
    /// The public keys in a PEM file, one or several; none, with the reason in error.
    static std::vector<Ed25519> readPublic(const std::string& file, std::string& error);

    /// Only with a private key. Empty when it cannot be computed.
    std::string sign(std::string_view message) const;
    bool hasSigned(std::string_view message, std::string_view signature) const;

  private:
    explicit Ed25519(evp_pkey_st* key);

    std::shared_ptr<evp_pkey_st> key_;
};

}  // namespace zelvo::relay
