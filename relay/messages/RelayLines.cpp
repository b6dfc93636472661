#include "relay/messages/RelayLines.h"

#include <algorithm>

#include "sealing/Base64.h"

namespace zelvo::relay {
namespace {

constexpr std::size_t TokenLength = 22;
constexpr std::string_view AddressCharacters = "0123456789abcdef:.";
/// Of an IPv6 address as text.
constexpr std::size_t LongestAddress = 45;

bool isEncoded(std::string_view text) {
    return !text.empty() && sealing::decodeBase64(text, sealing::Base64::ForLinks).has_value();
}

}  // namespace

Line readLine(std::string_view line) {
    using Kind = Line::Kind;
    if (line == "ping")
        return {Kind::Ping};
    if (line == "pong")
        return {Kind::Pong};
    const auto gap = std::min(line.find(' '), line.size());
    const auto word = line.substr(0, gap);
    const auto rest = line.substr(std::min(gap + 1, line.size()));
    if (word == "lease" && isEncoded(rest))
        return {Kind::Lease, std::string(rest)};
    const auto token = rest.substr(0, TokenLength);
    const auto address = rest.substr(std::min(TokenLength + 1, rest.size()));
    if (word == "viewer" && token.size() == TokenLength && isEncoded(token) && !address.empty() &&
        rest[TokenLength] == ' ' && address.size() <= LongestAddress &&
        address.find_first_not_of(AddressCharacters) == address.npos)
        return {Kind::Viewer, std::string(token), std::string(address)};
    return {};
}

std::string textOf(const Line& line) {
    switch (line.kind) {
        case Line::Kind::Ping:
            return "ping\n";
        case Line::Kind::Pong:
            return "pong\n";
        case Line::Kind::Viewer:
            return "viewer " + line.text + ' ' + line.address + '\n';
        case Line::Kind::Lease:
            return "lease " + line.text + '\n';
        case Line::Kind::Other:
            break;
    }
    return {};
}

bool LineReader::receive(std::string_view bytes, const std::function<bool(const Line&)>& hear) {
    const auto isText = [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); };
    if (!std::ranges::all_of(bytes, isText))
        return false;
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        begun_ += bytes.substr(0, std::min(end, bytes.size()));
        if (begun_.size() >= Line::Longest)
            return false;
        if (end == bytes.npos)
            return true;
        bytes.remove_prefix(end + 1);
        const auto line = readLine(begun_);
        begun_.clear();
        if (!hear(line))
            return false;
    }
    return true;
}

}  // namespace zelvo::relay
