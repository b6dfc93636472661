#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace zelvo::platform {

/// A property list as libplist holds it, which keeps kinds that PropertyList has no place for, so
/// that a document that is read, changed and written loses nothing. Any one thread at a time.
class PlistDocument {
  public:
    static constexpr std::size_t sizeLimit = std::size_t{1} << 20;
    static constexpr int nestingLimit = 64;

    struct ParseResult;

    /// From the XML, binary or old text form, the form told by the bytes.
    static ParseResult parse(std::span<const std::byte> bytes);
    static PlistDocument emptyDictionary();

    PlistDocument(PlistDocument&&) noexcept = default;
    PlistDocument& operator=(PlistDocument&&) noexcept = default;

    /// An unsigned integer beyond 64 signed bits becomes a real, a UID the dictionary
    /// { "CF$UID" = number }. None when a string is not UTF-8.
    std::optional<PropertyList> toPropertyList() const;
    /// The XML form; none when there is no memory for it.
    std::optional<std::string> toXml() const;

    /// Whether the root is a dictionary. A UID is none, although it is read as one.
    bool isDictionary() const;
    /// Members of the root; nothing happens where that is no dictionary.
    void setString(std::string_view key, std::string_view value);
    void removeMember(std::string_view key);

  private:
    struct Free {
        void operator()(void* node) const;
    };
    explicit PlistDocument(void* root) : root_(root) {}

    std::unique_ptr<void, Free> root_;
};

struct PlistDocument::ParseResult {
    std::optional<PlistDocument> document;
    /// Why there is no document.
    std::string error;
};

}  // namespace zelvo::platform
