#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "platform/PropertyListReader.h"

namespace zelvo::platform {

/// Dictionaries of files are kept until the file changes, as they are asked for many times a
/// second; each question costs one look at the file's identity, size and times.
class PlistReader : public PropertyListReader {
  public:
    /// `systemRoot` is the folder that holds "/Library/..." and "/System/...". Times of files move
    /// in steps of up to 10 ms, and two writes within one step leave the same identity: a file is
    /// kept once its last change is older than `settledAfter`.
    explicit PlistReader(std::string systemRoot,
                         std::chrono::nanoseconds settledAfter = std::chrono::milliseconds(50));

    PropertyListResult parse(std::span<const std::byte> bytes) const override;
    std::optional<PropertyList::Dictionary> dictionaryWithContentsOfFile(
        const std::string& path) const override;
    bool fileExists(const std::string& path) const override;

  private:
    struct Identity {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t size = 0;
        std::int64_t modified = 0;
        std::int64_t changed = 0;
        friend bool operator==(const Identity&, const Identity&) = default;
    };
    struct Entry {
        Identity identity;
        std::optional<PropertyList::Dictionary> dictionary;
    };

    std::string located(const std::string& path) const;

    const std::string systemRoot_;
    const std::chrono::nanoseconds settledAfter_;
    mutable std::mutex mutex_;
    mutable std::map<std::string, Entry> entries_;
};

}  // namespace zelvo::platform
