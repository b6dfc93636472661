#include "platform/linux/property_lists/FileUserDefaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <utility>

#include "platform/Log.h"
#include "platform/linux/base/FileReading.h"
#include "platform/linux/files/FileReplacement.h"
#include "platform/linux/property_lists/PlistParsing.h"
#include "platform/linux/property_lists/XmlPlistWriter.h"

namespace zelvo::platform {

namespace {

constexpr int damagedLimit = 1000;
/// Room for a string as long as a property list may be, each character escaped.
constexpr std::size_t sizeLimit = 8 * PlistLimits::bytes;

std::string_view textOf(const QByteArray& bytes) {
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

}  // namespace

FileUserDefaults::FileUserDefaults(std::string folder, Log& log, Told told, std::string secret)
    : folder_(std::move(folder)),
      file_(folder_ + "/defaults.plist"),
      log_(log),
      told_(std::move(told)),
      secret_(std::move(secret)) {}

bool FileUserDefaults::boolForKey(std::string_view key) const {
    auto found = value(key);
    return found && found->booleanReading();
}

std::optional<std::string> FileUserDefaults::stringForKey(std::string_view key) const {
    auto found = value(key);
    if (!found)
        return std::nullopt;
    if (const auto* text = found->string())
        return *text;
    if (const auto* bytes = found->data()) {
        std::string text(reinterpret_cast<const char*>(bytes->data()), bytes->size());
        return isXmlText(text) ? std::nullopt : std::optional(std::move(text));
    }
    if (const auto* number = found->integer())
        return std::to_string(*number);
    if (const auto* number = found->real()) {
        std::array<char, 64> digits;
        auto end = std::to_chars(digits.data(), digits.data() + digits.size(), *number).ptr;
        return std::string(digits.data(), end);
    }
    return std::nullopt;
}

void FileUserDefaults::setString(std::string_view key, std::string_view value) {
    const bool isDone = store(key, value);
    if (told_)
        told_(key, Wanted::Stored, isDone);
}

bool FileUserDefaults::store(std::string_view key, std::string_view value) {
    auto dictionary = read();
    if (!dictionary)
        return false;
    auto found = dictionary->find(std::string(key));
    const auto* kept = found == dictionary->end() ? nullptr : found->second.string();
    // What stands there already is kept also where nothing can be written.
    if (kept && *kept == value)
        return true;
    dictionary->insert_or_assign(std::string(key), std::string(value));
    return write(*dictionary);
}

void FileUserDefaults::removeObject(std::string_view key) {
    const bool isDone = remove(key);
    if (told_)
        told_(key, Wanted::Removed, isDone);
}

bool FileUserDefaults::remove(std::string_view key) {
    auto dictionary = read();
    if (!dictionary)
        return false;
    if (dictionary->erase(std::string(key)) == 0 || write(*dictionary))
        return true;
    if (const auto xml = writeXmlPlist(*dictionary); xml && overwriteFile(file_, textOf(*xml)))
        return true;
    if (key != secret_)
        return false;
    if (::unlink(file_.c_str()) != 0 && !overwriteFile(file_, {}))
        return false;
    log_.line("Defaults: given up, to remove a value from them");
    write(*dictionary);
    return true;
}

std::optional<PropertyList> FileUserDefaults::value(std::string_view key) const {
    auto dictionary = read();
    if (!dictionary)
        return std::nullopt;
    auto found = dictionary->find(std::string(key));
    return found == dictionary->end() ? std::nullopt : std::optional(std::move(found->second));
}

std::optional<PropertyList::Dictionary> FileUserDefaults::read() const {
    struct stat status {};
    if (folder_.empty())
        return PropertyList::Dictionary();
    if (::stat(file_.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return PropertyList::Dictionary();
        // There may be one all the same, which must not be written over.
        complain("Defaults: cannot read " + file_);
        return std::nullopt;
    }
    auto bytes = readRegularFile(file_, sizeLimit);
    if (!bytes && status.st_size <= static_cast<off_t>(sizeLimit)) {
        complain("Defaults: cannot read " + file_);
        return std::nullopt;
    }
    auto parsed =
        bytes ? parsePlist(*bytes, sizeLimit) : ParsedPlist{std::nullopt, "larger than 8 MiB"};
    if (parsed.value && parsed.value->dictionary())
        return std::move(*parsed.value->dictionary());
    if (!setAside(parsed.value ? "no dictionary" : parsed.error))
        return std::nullopt;
    return PropertyList::Dictionary();
}

bool FileUserDefaults::setAside(const std::string& why) const {
    for (int number = 1; number < damagedLimit; ++number) {
        auto name = file_ + ".damaged-" + std::to_string(number);
        // Never over an earlier one.
        if (::renameat2(AT_FDCWD, file_.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0) {
            log_.line("Defaults: damaged (" + why + "), set aside as " + name);
            return true;
        }
        if (errno != EEXIST)
            break;
    }
    complain("Defaults: damaged (" + why + "): " + file_);
    return false;
}

bool FileUserDefaults::write(const PropertyList::Dictionary& dictionary) {
    auto refuse = [this](const std::string& why) {
        complain("Defaults: " + why);
        return false;
    };
    if (folder_.empty())
        return refuse("not stored, as there is no home folder");
    auto xml = writeXmlPlist(dictionary);
    if (!xml || static_cast<std::size_t>(xml->size()) > sizeLimit)
        return refuse(xml ? "not stored, as they would exceed 8 MiB"
                          : "not stored, as XML cannot hold one of the keys");
    if (auto error = replaceFile(file_, textOf(*xml)); !error.empty())
        return refuse(error);
    lastComplaint_.clear();
    return true;
}

void FileUserDefaults::complain(const std::string& text) const {
    if (std::exchange(lastComplaint_, text) != text)
        log_.line(text);
}

}  // namespace zelvo::platform
