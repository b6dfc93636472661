#include "platform/linux/screen_sharing/AdmittedSockets.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/screen_sharing/VncPort.h"

namespace zelvo::platform {

namespace {

constexpr std::string_view established = "ESTABLISHED";

using Columns = std::array<std::string_view, 6>;

/// The last ones are empty where the line has fewer.
Columns columnsOf(std::string_view line) {
    Columns columns;
    for (auto& column : columns) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        column = line.substr(0, line.find(' '));
        line.remove_prefix(column.size());
    }
    return columns;
}

/// Calls `use` with each line that has the word. It may replace what lies in the line's last
/// column.
template <typename Use>
void forEachMention(const std::string& text, const std::string& word, Use use) {
    // Hosts have thousands of sockets, and few on one port.
    for (auto at = text.find(word); at != text.npos;) {
        const auto newline = text.rfind('\n', at);
        const auto begin = newline == text.npos ? 0 : newline + 1;
        const auto line = std::string_view(text).substr(begin, text.find('\n', at) - begin);
        use(columnsOf(line));
        at = text.find(word, std::min(text.find('\n', at), text.size()));
    }
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
    const auto number = std::to_string(vncPort(services_));
    forEachMention(text, number, [&](const Columns& columns) {
        if (columns[5] != established)
            return;
        // A viewer on this computer has its own end in the table, too.
        const auto viewer = peerOf(columns[3].ends_with("." + number) ? columns[4] : columns[3]);
        if (!viewer || !viewers_.isInside(*viewer))
            text.replace(static_cast<std::size_t>(columns[5].data() - text.data()),
                         established.size(), "SYN_RCVD");
    });
    return listing;
}

}  // namespace zelvo::platform
