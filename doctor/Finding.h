#pragma once

#include <cstdint>
#include <string>

namespace zelvo::doctor {

/// One thing that sharing a screen needs, as it is on this machine.
struct Finding {
    enum class Standing : std::uint8_t {
        Works,
        /// Something is missing that it can do without, or by another way.
        Limits,
        Fails,
        Unknown,
    };

    /// One of a few fixed words, for those who compare findings.
    std::string subject;
    Standing standing = Standing::Unknown;
    /// A sentence in the user's language.
    std::string text;
};

}  // namespace zelvo::doctor
