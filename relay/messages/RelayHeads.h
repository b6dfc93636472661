#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace zelvo::relay {

/// Of what a host keeps to a relay.
inline constexpr std::string_view Protocol = "zelvo-relay.1";
/// What a host may be reached by at a relay.
inline constexpr int FirstNumber = 10000;
inline constexpr int LastNumber = 65533;
inline constexpr std::size_t LongestHead = 4096;

// The first thing that a client of a relay says. Texts of base64url are not decoded.

/// A host that wants to be reached.
struct HostRequest {
    std::string relay;  ///< name of the relay
    std::string ticket;
    std::string lease;  ///< empty without one
};
/// A host that comes for a viewer.
struct DialBackRequest {
    std::string relay;
    std::string token;
};
/// Somebody who opens a link.
struct ViewerRequest {
    int number = 0;
    std::string nonce;  ///< the value of "Sec-WebSocket-Key"
};
/// None of these: the HTTP status that says so.
struct BadRequest {
    int status = 400;
};
using Request = std::variant<BadRequest, HostRequest, DialBackRequest, ViewerRequest>;

/// How many bytes from the front on are an HTTP head with its empty line: 0 while it is incomplete,
/// npos when it is too long or cannot be one.
std::size_t headLength(std::string_view bytes);

/// Takes a whole head.
Request readRequest(std::string_view head);
/// A host's requests, as they are sent. The texts must fit into a field.
std::string textOf(const HostRequest& request);
std::string textOf(const DialBackRequest& request);
/// What a host gets to read of a viewer's request.
std::string textForHost(const ViewerRequest& request);

/// What a relay answers to a host.
struct Reply {
    int status = 0;          ///< 101 where it may go on
    int number = 0;          ///< 0 where none is told
    std::string lease = {};  ///< empty where none is told
    std::chrono::seconds retryAfter{0};
};

/// Takes a whole head; nothing when it is no answer of a relay's.
std::optional<Reply> readReply(std::string_view head);
std::string textOf(const Reply& reply);

}  // namespace zelvo::relay
