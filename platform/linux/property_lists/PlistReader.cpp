#include "platform/linux/property_lists/PlistReader.h"

#include <sys/stat.h>

#include <chrono>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/property_lists/PlistDocument.h"

namespace zelvo::platform {

namespace {

/// Times of files move in steps of up to 10 ms: two writes within one step leave the same identity.
constexpr std::int64_t settledAfter = 50'000'000;
constexpr std::size_t entryLimit = 64;

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::int64_t nowNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return nanoseconds(now);
}

}  // namespace

PlistReader::PlistReader(std::string systemRoot) : systemRoot_(std::move(systemRoot)) {}

std::string PlistReader::located(const std::string& path) const {
    bool isSystem = path.starts_with("/Library/") || path.starts_with("/System/");
    return isSystem ? systemRoot_ + path : path;
}

PropertyListResult PlistReader::parse(std::span<const std::byte> bytes) const {
    auto parsed = PlistDocument::parse(bytes);
    if (parsed.document) {
        if (auto value = parsed.document->toPropertyList())
            return {std::move(value), std::nullopt};
        parsed.error = "a string that is not UTF-8";
    }
    return {std::nullopt, Error{CocoaErrorDomain, PropertyListReadCorruptError,
                                "Not a property list: " + parsed.error}};
}

std::optional<PropertyList::Dictionary> PlistReader::dictionaryWithContentsOfFile(
    const std::string& path) const {
    auto place = located(path);
    struct stat status {};
    if (::stat(place.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    Identity identity{status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                      nanoseconds(status.st_ctim)};

    std::lock_guard lock(mutex_);
    if (auto known = entries_.find(place);
        known != entries_.end() && known->second.identity == identity)
        return known->second.dictionary;
    entries_.erase(place);

    std::optional<PropertyList::Dictionary> dictionary;
    if (auto bytes = readRegularFile(place, PlistDocument::sizeLimit)) {
        if (auto result = parse(*bytes); result.value && result.value->dictionary())
            dictionary = std::move(*result.value->dictionary());
    }
    if (nowNanoseconds() - identity.changed > settledAfter) {
        if (entries_.size() >= entryLimit)
            entries_.clear();
        entries_[place] = {identity, dictionary};
    }
    return dictionary;
}

bool PlistReader::fileExists(const std::string& path) const {
    struct stat status {};
    return ::stat(located(path).c_str(), &status) == 0;
}

}  // namespace zelvo::platform
