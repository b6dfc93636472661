#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "sealing/Secret.h"

namespace zelvo::sealing {

inline constexpr std::size_t hashSize = 32;
inline constexpr std::size_t publicKeySize = 32;

// A machine on which one of these cannot be computed can seal nothing: the process ends.

std::string sha256(std::string_view bytes);
/// For the WebSocket's handshake, which proves nothing by it.
std::string sha1(std::string_view bytes);
/// RFC 5869 with SHA-256, extract and expand.
void hkdf(std::string_view salt, std::string_view secret, std::string_view info,
          std::span<unsigned char> out);
void fillWithRandom(std::span<unsigned char> bytes);

/// X25519 (RFC 7748): the public half of a private key.
std::string publicHalf(const Key& privateKey);
/// What both sides agree on; false where the peer's half is none that agrees on a secret.
bool agree(const Key& privateKey, std::string_view peersHalf, Key& agreed);

/// In a time that does not tell where they differ.
bool isSame(std::string_view one, std::string_view other);

}  // namespace zelvo::sealing
