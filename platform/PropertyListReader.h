#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "platform/Error.h"
#include "platform/PropertyList.h"

namespace zelvo::platform {

struct PropertyListResult {
    std::optional<PropertyList> value;
    /// Set exactly when there is no value. Bytes that are no property list: CocoaErrorDomain,
    /// PropertyListReadCorruptError.
    std::optional<Error> error;
};

/// Reads property lists in the XML, binary and old text forms, the form told by the bytes. Limits:
/// 1 MiB, nesting 64; beyond them a parse error. Any thread.
class PropertyListReader {
  public:
    virtual ~PropertyListReader() = default;

    virtual PropertyListResult parse(std::span<const std::byte> bytes) const = 0;

    /// The dictionary at the root of a file; none when the file is missing, unreadable, no property
    /// list or has another root. Paths below "/Library/" and "/System/" are those of the system
    /// root.
    virtual std::optional<PropertyList::Dictionary> dictionaryWithContentsOfFile(
        const std::string& path) const = 0;

    /// Whether a file exists at the path.
    virtual bool fileExists(const std::string& path) const = 0;
};

}  // namespace zelvo::platform
