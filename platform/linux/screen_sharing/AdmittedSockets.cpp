#include "platform/linux/screen_sharing/AdmittedSockets.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/ServicesDatabase.h"

namespace zelvo::platform {

namespace {

constexpr std::uint16_t standardVncPort = 5900;
constexpr std::string_view established = "ESTABLISHED";

/// The columns of a line; the last ones are empty where it has fewer.
std::array<std::string_view, 6> columnsOf(std::string_view line) {
    std::array<std::string_view, 6> columns;
    for (auto& column : columns) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        column = line.substr(0, line.find(' '));
        line.remove_prefix(column.size());
    }
    return columns;
}

/// "192.0.2.7.51234"; none for an IPv6 peer.
std::optional<gate::Peer> peerOf(std::string_view text) {
    const auto point = text.rfind('.');
    if (point == text.npos)
        return std::nullopt;
    gate::Peer peer;
    const auto port = text.substr(point + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), peer.port);
    if (error != std::errc() || end != port.data() + port.size() ||
        ::inet_pton(AF_INET, std::string(text.substr(0, point)).c_str(), peer.address.data()) != 1)
        return std::nullopt;
    return peer;
}

}  // namespace

AdmittedSockets::AdmittedSockets(const SocketTable& sockets, const ServicesDatabase& services,
                                 Viewers viewers)
    : sockets_(sockets), services_(services), viewers_(std::move(viewers)) {}

SocketListing AdmittedSockets::tcpSockets(SocketFamily family, SocketState state) const {
    auto listing = sockets_.tcpSockets(family, state);
    if (!listing.text || !viewers_.areKnown())
        return listing;
    auto& text = *listing.text;
    const auto port =
        "." + std::to_string(services_.tcpPort("vnc-server").value_or(standardVncPort)) + " ";
    // Hosts have thousands of sockets, and few on this port.
    for (auto at = text.find(port); at != text.npos; at = text.find(port, at + 1)) {
        const auto begin = text.rfind('\n', at) == text.npos ? 0 : text.rfind('\n', at) + 1;
        const auto end = std::min(text.find('\n', at), text.size());
        const auto columns = columnsOf(std::string_view(text).substr(begin, end - begin));
        const auto isLocal = std::string(columns[3]).append(" ").ends_with(port);
        if (!isLocal || columns[5] != established)
            continue;
        const auto peer = peerOf(columns[4]);
        if (!peer || !viewers_.isInside(*peer))
            text.replace(static_cast<std::size_t>(columns[5].data() - text.data()),
                         established.size(), "SYN_RCVD");
    }
    return listing;
}

}  // namespace zelvo::platform
