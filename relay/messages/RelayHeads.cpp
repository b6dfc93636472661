#include "relay/messages/RelayHeads.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "sealing/Base64.h"
#include "sealing/HttpHead.h"
#include "sealing/WebSocketHead.h"

namespace zelvo::relay {
namespace {

using namespace std::string_view_literals;
using sealing::Base64;
using sealing::HttpHead;

constexpr auto EndOfHead = "\r\n\r\n"sv;
constexpr std::size_t NonceBytes = 16;
/// More than a ticket for the longest name.
constexpr std::size_t LongestSigned = 480;
constexpr std::size_t LongestName = 259;  ///< of a relay, with a port
constexpr auto LongestRetry = 3600;

std::optional<HttpHead> parse(std::string_view head) {
    head.remove_suffix(std::min(head.size(), EndOfHead.size()));
    return HttpHead::parse(head);
}

template <typename Number>
bool readNumber(std::string_view text, Number least, Number most, Number& number) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() && !text.starts_with('0') &&
           number >= least && number <= most;
}

bool asksFor(const HttpHead& head, std::string_view protocol) {
    return head.lists("upgrade", protocol, false) && head.lists("connection", "upgrade", false);
}

/// The text of a field that holds base64url; nothing where it holds something else, or is missing.
std::string encodedIn(const HttpHead& head, std::string_view name) {
    const auto text = head.only(name).value_or(""sv);
    return text.size() <= LongestSigned && sealing::decodeBase64(text, Base64::ForLinks)
               ? std::string(text)
               : std::string();
}

Request readViewer(const HttpHead& head, std::string_view path) {
    ViewerRequest request;
    if (!readNumber(path, FirstNumber, LastNumber, request.number))
        return BadRequest{404};
    request.nonce = head.only("sec-websocket-key").value_or(""sv);
    const auto nonce = sealing::decodeBase64(request.nonce, Base64::Padded);
    if (!asksFor(head, "websocket") || !nonce || nonce->size() != NonceBytes ||
        head.only("sec-websocket-version") != "13"sv ||
        !head.lists("sec-websocket-protocol", sealing::WebSocketHead::protocol, true))
        return BadRequest{400};
    return request;
}

std::string upgradeLines(std::string_view protocol) {
    return "Connection: Upgrade\r\nUpgrade: " + std::string(protocol) + "\r\n";
}

std::string field(std::string_view name, std::string_view value) {
    return value.empty() ? "" : std::string(name) + ": " + std::string(value) + "\r\n";
}

const char* reasonOf(int status) {
    constexpr std::pair<int, const char*> reasons[] = {
        {101, "Switching Protocols"}, {400, "Bad Request"},       {403, "Forbidden"},
        {404, "Not Found"},           {429, "Too Many Requests"}, {503, "Service Unavailable"}};
    const auto* found = std::ranges::find(reasons, status, &std::pair<int, const char*>::first);
    return found == std::end(reasons) ? "Error" : found->second;
}

}  // namespace

std::size_t headLength(std::string_view bytes) {
    const auto end = bytes.substr(0, LongestHead).find(EndOfHead);
    if (end != bytes.npos)
        return end + EndOfHead.size();
    return bytes.size() < LongestHead ? 0 : bytes.npos;
}

Request readRequest(std::string_view text) {
    constexpr auto method = "GET /"sv;
    constexpr auto version = " HTTP/1.1"sv;
    const auto head = parse(text);
    if (!head || !head->firstLine.starts_with(method) || !head->firstLine.ends_with(version) ||
        head->firstLine.size() < method.size() + version.size() || head->has("content-length") ||
        head->has("transfer-encoding"))
        return BadRequest{400};
    auto path = head->firstLine.substr(method.size());
    path.remove_suffix(version.size());
    const auto relay = head->only("host").value_or(""sv);
    if (relay.empty() || relay.size() > LongestName)
        return BadRequest{400};
    if (path != "host" && path != "viewer")
        return readViewer(*head, path);
    if (!asksFor(*head, Protocol))
        return BadRequest{400};
    if (path == "host") {
        HostRequest host{std::string(relay), encodedIn(*head, "zelvo-ticket"),
                         encodedIn(*head, "zelvo-lease")};
        return host.ticket.empty() ? Request(BadRequest{403}) : Request(std::move(host));
    }
    DialBackRequest back{std::string(relay), encodedIn(*head, "zelvo-token")};
    return back.token.empty() ? Request(BadRequest{404}) : Request(std::move(back));
}

std::string textOf(const HostRequest& request) {
    return "GET /host HTTP/1.1\r\n" + field("Host", request.relay) + upgradeLines(Protocol) +
           field("Zelvo-Ticket", request.ticket) + field("Zelvo-Lease", request.lease) + "\r\n";
}

std::string textOf(const DialBackRequest& request) {
    return "GET /viewer HTTP/1.1\r\n" + field("Host", request.relay) + upgradeLines(Protocol) +
           field("Zelvo-Token", request.token) + "\r\n";
}

std::string textForHost(const ViewerRequest& request) {
    return "GET / HTTP/1.1\r\nHost: zelvo\r\n" + upgradeLines("websocket") +
           field("Sec-WebSocket-Key", request.nonce) + "Sec-WebSocket-Version: 13\r\n" +
           field("Sec-WebSocket-Protocol", sealing::WebSocketHead::protocol) + "\r\n";
}

std::optional<Reply> readReply(std::string_view text) {
    constexpr auto version = "HTTP/1.1 "sv;
    constexpr std::size_t digits = 3;
    const auto head = parse(text);
    Reply reply;
    if (!head || !head->firstLine.starts_with(version) ||
        !readNumber(head->firstLine.substr(version.size(), digits), 100, 599, reply.status))
        return std::nullopt;
    if (reply.status == 101 && !asksFor(*head, Protocol))
        return std::nullopt;
    const auto number = head->only("zelvo-number");
    if (number && !readNumber(*number, FirstNumber, LastNumber, reply.number))
        return std::nullopt;
    reply.lease = encodedIn(*head, "zelvo-lease");
    int seconds = 0;
    if (readNumber(head->only("retry-after").value_or(""sv), 1, LongestRetry, seconds))
        reply.retryAfter = std::chrono::seconds(seconds);
    return reply;
}

std::string textOf(const Reply& reply) {
    auto text = "HTTP/1.1 " + std::to_string(reply.status) + ' ' + reasonOf(reply.status) + "\r\n";
    text +=
        reply.status == 101 ? upgradeLines(Protocol) : "Connection: close\r\nContent-Length: 0\r\n";
    if (reply.number > 0)
        text += field("Zelvo-Number", std::to_string(reply.number));
    if (reply.retryAfter.count() > 0)
        text += field("Retry-After", std::to_string(reply.retryAfter.count()));
    return text + field("Zelvo-Lease", reply.lease) + "\r\n";
}

}  // namespace zelvo::relay
