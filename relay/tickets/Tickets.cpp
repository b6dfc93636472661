#include "relay/tickets/Tickets.h"

#include <array>

#include "relay/messages/RelayHeads.h"
#include "sealing/Base64.h"
#include "sealing/Primitives.h"

namespace zelvo::relay {
namespace {

using namespace std::string_literals;
using sealing::Base64;

constexpr char Version = 1;
constexpr std::size_t EndBytes = 8;
const auto TicketPurpose = "zelvo-relay ticket\0"s;
const auto LeasePurpose = "zelvo-relay lease\0"s;
const auto OwnerPurpose = "zelvo-relay owner\0"s;

void append(std::string& bytes, std::uint64_t number, std::size_t count) {
    while (count-- > 0)
        bytes += static_cast<char>(number >> (8 * count));
}

std::uint64_t take(std::string_view& bytes, std::size_t count) {
    std::uint64_t number = 0;
    for (const char byte : bytes.substr(0, count))
        number = number << 8 | static_cast<unsigned char>(byte);
    bytes.remove_prefix(count);
    return number;
}

std::string takeText(std::string_view& bytes, std::size_t count) {
    const std::string text(bytes.substr(0, count));
    bytes.remove_prefix(count);
    return text;
}

std::string seal(const std::string& purpose, const std::string& body, const Ed25519& key) {
    const auto signature = key.sign(purpose + body);
    return signature.empty() ? "" : sealing::encodeBase64(body + signature, Base64::ForLinks);
}

/// The body, of so many bytes, that one of the keys has signed for this purpose.
std::optional<std::string> open(const std::string& purpose, std::string_view text,
                                std::size_t least, std::size_t most,
                                std::span<const Ed25519> keys) {
    const auto bytes = sealing::decodeBase64(text, Base64::ForLinks);
    if (!bytes || bytes->size() < least + Ed25519::SignatureBytes ||
        bytes->size() > most + Ed25519::SignatureBytes || bytes->front() != Version)
        return std::nullopt;
    const auto body = bytes->substr(0, bytes->size() - Ed25519::SignatureBytes);
    for (const auto& key : keys)
        if (key.hasSigned(purpose + body, std::string_view(*bytes).substr(body.size())))
            return body;
    return std::nullopt;
}

}  // namespace

std::string Ticket::sealed(const Ed25519& key) const {
    std::string body(1, Version);
    append(body, static_cast<std::uint64_t>(end), EndBytes);
    return seal(TicketPurpose, body + owner + relay, key);
}

std::optional<Ticket> Ticket::read(std::string_view text, std::span<const Ed25519> keys) {
    constexpr auto fixed = 1 + EndBytes + PseudonymBytes;
    const auto body = open(TicketPurpose, text, fixed + 1, fixed + LongestName, keys);
    if (!body)
        return std::nullopt;
    auto rest = std::string_view(*body).substr(1);
    Ticket ticket;
    ticket.end = static_cast<Moment>(take(rest, EndBytes));
    ticket.owner = takeText(rest, PseudonymBytes);
    ticket.relay = rest;
    return ticket;
}

std::string Lease::sealed(const Ed25519& key) const {
    std::string body(1, Version);
    append(body, static_cast<std::uint64_t>(end), EndBytes);
    body += host;
    append(body, static_cast<std::uint64_t>(number), 2);
    return seal(LeasePurpose, body, key);
}

std::optional<Lease> Lease::read(std::string_view text, const Ed25519& key) {
    constexpr auto length = 1 + EndBytes + PseudonymBytes + 2;
    const auto body = open(LeasePurpose, text, length, length, {&key, 1});
    if (!body)
        return std::nullopt;
    auto rest = std::string_view(*body).substr(1);
    Lease lease;
    lease.end = static_cast<Moment>(take(rest, EndBytes));
    lease.host = takeText(rest, PseudonymBytes);
    lease.number = static_cast<int>(take(rest, 2));
    if (lease.number < FirstNumber || lease.number > LastNumber)
        return std::nullopt;
    return lease;
}

std::string pseudonymOf(std::string_view owner, std::string_view relay) {
    return sealing::sha256(OwnerPurpose + std::string(owner) + std::string(relay))
        .substr(0, PseudonymBytes);
}

std::string freshPseudonym() {
    std::array<unsigned char, PseudonymBytes> bytes{};
    sealing::fillWithRandom(bytes);
    return {bytes.begin(), bytes.end()};
}

}  // namespace zelvo::relay
