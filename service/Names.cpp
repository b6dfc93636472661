#include "service/Names.h"

#include <openssl/sha.h>
#include <sys/random.h>

#include <array>
#include <cerrno>

namespace zelvo::service {
namespace {

constexpr std::string_view HexDigits = "0123456789abcdef";
constexpr std::size_t NameBytes = 16;

}  // namespace

std::optional<std::string> newName() {
    std::array<unsigned char, NameBytes> bytes{};
    ssize_t got = 0;
    do {
        got = getrandom(bytes.data(), bytes.size(), 0);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(bytes.size()))
        return std::nullopt;
    return nameOfBytes({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

std::string nameOfBytes(std::string_view bytes) {
    std::string name;
    for (const unsigned char byte : bytes) {
        name += HexDigits[byte >> 4];
        name += HexDigits[byte & 15];
    }
    return name;
}

std::optional<std::string> bytesOfName(std::string_view name) {
    if (name.size() != 2 * NameBytes || name.find_first_not_of(HexDigits) != name.npos)
        return std::nullopt;
    std::string bytes;
    for (std::size_t at = 0; at < name.size(); at += 2)
        bytes += static_cast<char>(HexDigits.find(name[at]) << 4 | HexDigits.find(name[at + 1]));
    return bytes;
}

std::string digestOf(std::string_view secret) {
    std::string digest(SHA256_DIGEST_LENGTH, '\0');
    SHA256(reinterpret_cast<const unsigned char*>(secret.data()), secret.size(),
           reinterpret_cast<unsigned char*>(digest.data()));
    return digest;
}

}  // namespace zelvo::service
