#pragma once

#include <cstdint>
#include <string>

namespace zelvo::platform {

/// A failure reported by a platform service: who reports it, its number there, and a text for the
/// log.
struct Error {
    std::string domain;
    std::int64_t code = 0;
    std::string description;

    friend bool operator==(const Error&, const Error&) = default;
};

/// Domain of property-list errors.
inline constexpr const char* CocoaErrorDomain = "NSCocoaErrorDomain";
/// In CocoaErrorDomain: the bytes are not a property list.
inline constexpr std::int64_t PropertyListReadCorruptError = 3840;
/// Domain of transport errors; the codes are those of the transport library.
inline constexpr const char* UrlErrorDomain = "NSURLErrorDomain";

/// The text of an error as a log line shows it.
inline std::string describe(const Error& error) {
    return "Error Domain=" + error.domain + " Code=" + std::to_string(error.code) + " \"" +
           error.description + "\"";
}

}  // namespace zelvo::platform
