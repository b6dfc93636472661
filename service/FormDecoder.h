#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "service/StatusCode.h"

namespace zelvo::service {

/// Decoded values by field name.
using Fields = std::map<std::string, std::string, std::less<>>;

/// Decodes the form of one endpoint, as its clients write it: space and all that has no place in a
/// URL is percent-escaped as UTF-8, but "&", "=" and "+" stand in a value as they are. So "+" is a
/// plus, only the first "=" splits, and what follows an "&" begins a field only where it is one of
/// the endpoint's names followed by "="; everything else belongs to the value before it.
///
/// A kept link is another service's word and may hold anything, also what looks like other fields.
/// One that cannot be read becomes empty, and what it seems to say of other fields stays in it.
class FormDecoder {
  public:
    /// Longest decoded values, in bytes. A host's settings are a document, all else are names.
    static constexpr std::size_t LongestValue = 4 * 1024;
    static constexpr std::size_t LongestSettings = 64 * 1024;

    struct Result {
        StatusCode status = StatusCode::Ok;
        std::string_view field;  ///< the field that is refused, empty where it is in none
        Fields fields;           ///< with status Ok: every name of the endpoint, none besides
    };

    /// The names must outlive the decoder and its results.
    explicit FormDecoder(std::span<const std::string_view> names) : names_(names) {}

    Result decode(std::string_view body) const;

  private:
    using RawValues = std::map<std::string_view, std::string_view>;

    std::string_view nameOf(std::string_view segment) const;
    Result split(std::string_view body, RawValues& values) const;

    std::span<const std::string_view> names_;
};

}  // namespace zelvo::service
