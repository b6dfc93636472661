#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zelvo::platform {

/// What the application asks of the helper, on the helper's standard input: the name of a tool and
/// variables of the session, each ended by a NUL, up to the end of the input. The helper answers on
/// its standard output with the lines below, or with one line on standard error and a status other
/// than 0.
struct ScreenSharingRequest {
    /// In bytes. A pipe passes that many on whole or not at all (PIPE_BUF).
    static constexpr std::size_t longest = 4096;
    /// The helper runs as root and waits for the request.
    static constexpr std::string_view readyAnswer = "ready\n";
    /// The tool runs.
    static constexpr std::string_view startedAnswer = "started\n";

    /// A file name, exactly one of the three.
    std::string tool;
    /// Name and value, not checked yet.
    std::vector<std::pair<std::string, std::string>> variables;

    /// Whether the tool of that name can only end what was given away.
    static bool onlyTakesBack(std::string_view tool);

    struct Result;
    static Result parse(std::string_view bytes);
};

struct ScreenSharingRequest::Result {
    std::optional<ScreenSharingRequest> request;
    /// Why there is none.
    std::string complaint;
};

/// The bytes of a request.
std::string screenSharingRequest(std::string_view tool,
                                 const std::vector<std::string>& assignments);

}  // namespace zelvo::platform
