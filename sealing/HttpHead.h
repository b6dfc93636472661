#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelvo::sealing {

/// The first line and the fields of an HTTP message (RFC 9112), as strictly as strangers are read.
/// Its texts are those of what was parsed.
struct HttpHead {
    static constexpr std::size_t mostFields = 64;

    struct Field {
        std::string name;  ///< in lower case
        std::string_view value;
    };

    /// Of the lines without the empty one at their end; none where they break a rule.
    static std::optional<HttpHead> parse(std::string_view text);

    /// The value of a field that may stand once only; none where it stands not, or twice.
    std::optional<std::string_view> only(std::string_view name) const;
    bool has(std::string_view name) const;
    /// Whether a list, over all fields of this name, holds the token.
    bool lists(std::string_view name, std::string_view token, bool caseCounts) const;

    std::string_view firstLine;
    std::vector<Field> fields;
};

}  // namespace zelvo::sealing
