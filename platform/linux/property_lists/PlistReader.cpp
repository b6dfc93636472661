#include "platform/linux/property_lists/PlistReader.h"

#include <sys/stat.h>

#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/property_lists/PlistParsing.h"

namespace zelvo::platform {

namespace {

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

PlistReader::PlistReader(std::string systemRoot, std::chrono::nanoseconds settledAfter)
    : systemRoot_(std::move(systemRoot)), settledAfter_(settledAfter) {}

std::string PlistReader::located(const std::string& path) const {
    bool isSystem = path.starts_with("/Library/") || path.starts_with("/System/");
    return isSystem ? systemRoot_ + path : path;
}

PropertyListResult PlistReader::parse(std::span<const std::byte> bytes) const {
    auto parsed = parsePlist(bytes);
    if (parsed.value)
        return {std::move(parsed.value), std::nullopt};
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
    if (auto bytes = readRegularFile(place, PlistLimits::bytes)) {
        if (auto result = parse(*bytes); result.value && result.value->dictionary())
            dictionary = std::move(*result.value->dictionary());
    }
    if (nowNanoseconds() - identity.changed > settledAfter_.count()) {
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
