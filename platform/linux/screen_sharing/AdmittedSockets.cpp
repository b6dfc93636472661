#include "platform/linux/screen_sharing/AdmittedSockets.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <set>
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
    const auto port = "." + std::to_string(vncPort(services_)) + " ";
    // The ends of the connections that are not through the door, as the table writes them.
    std::set<std::pair<std::string, std::string>> pending;
    const auto lookAt = [&](std::string_view serversEnd, std::string_view viewersEnd) {
        const auto peer = peerOf(viewersEnd);
        if ((std::string(serversEnd) + " ").ends_with(port) && !(peer && viewers_.isInside(*peer)))
            pending.emplace(serversEnd, viewersEnd);
    };
    forEachMention(text, port, [&](const Columns& columns) {
        if (columns[5] != established)
            return;
        lookAt(columns[3], columns[4]);
        // One that was just made may be in the table with the viewer's end alone.
        if (columns[4].starts_with("127."))
            lookAt(columns[4], columns[3]);
    });
    if (pending.empty())
        return listing;
    forEachMention(text, port, [&](const Columns& columns) {
        std::pair<std::string, std::string> ends(columns[3], columns[4]);
        std::pair<std::string, std::string> seenFromThere(columns[4], columns[3]);
        // A viewer on this computer has its own end in the table, too.
        if (columns[5] == established &&
            (pending.contains(ends) || pending.contains(seenFromThere)))
            text.replace(static_cast<std::size_t>(columns[5].data() - text.data()),
                         established.size(), "SYN_RCVD");
    });
    return listing;
}

}  // namespace zelvo::platform
