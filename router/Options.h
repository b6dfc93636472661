#pragma once

#include <optional>
#include <span>
#include <string>

#include "router/Sockets.h"

namespace zelvo::router {

struct Options {
    Endpoint address{0x7f000001, 0};
    std::uint32_t external = 0x7f000001;
    /// What is printed on standard output instead of routing; null: nothing, it routes.
    const char* answer = nullptr;

    /// Nothing, and the reason in `error`, for arguments that it does not know.
    static std::optional<Options> parse(std::span<char* const> arguments, std::string& error);
    static const char* helpText();
};

}  // namespace zelvo::router
