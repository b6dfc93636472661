#include "platform/linux/property_lists/FileUserDefaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/Log.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileReading.h"
#include "platform/linux/base/TextEncoding.h"
#include "platform/linux/property_lists/PlistDocument.h"

namespace zelvo::platform {

namespace {

constexpr int damagedLimit = 1000;

std::string reason(int error) {
    return std::error_code(error, std::generic_category()).message();
}

/// Makes the folder and what lies above it, each for the user alone as the XDG standard asks.
int makeFolders(const std::string& folder) {
    for (auto end = folder.find('/', 1);; end = folder.find('/', end + 1)) {
        if (::mkdir(folder.substr(0, end).c_str(), S_IRWXU) != 0 && errno != EEXIST)
            return errno;
        if (end == folder.npos)
            return 0;
    }
}

int writeAll(int file, std::span<const char> content) {
    while (!content.empty()) {
        auto written = ::write(file, content.data(), content.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        content = content.subspan(static_cast<std::size_t>(written));
    }
    return 0;
}

bool isText(std::string_view text) {
    auto bytes = std::as_bytes(std::span(text));
    return text.find('\0') == text.npos && decodeText(bytes) == std::optional<std::string>(text);
}

}  // namespace

FileUserDefaults::FileUserDefaults(std::string folder, Log& log)
    : folder_(std::move(folder)), file_(folder_ + "/defaults.plist"), log_(log) {}

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
    if (!isText(key) || !isText(value))
        return complain("Defaults: not stored, as it is no UTF-8 text: " + std::string(key));
    auto document = read();
    if (!document)
        return;
    document->setString(key, value);
    write(*document);
}

void FileUserDefaults::removeObject(std::string_view key) {
    if (!value(key))
        return;
    if (auto document = read()) {
        document->removeMember(key);
        write(*document);
    }
}

std::optional<PropertyList> FileUserDefaults::value(std::string_view key) const {
    auto document = read();
    auto root = document ? document->toPropertyList() : std::nullopt;
    const auto* found = root ? root->find(key) : nullptr;
    return found ? std::optional(*found) : std::nullopt;
}

std::optional<PlistDocument> FileUserDefaults::read() const {
    struct stat status {};
    if (folder_.empty())
        return PlistDocument::emptyDictionary();
    if (::stat(file_.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return PlistDocument::emptyDictionary();
        // There may be one all the same, which must not be written over.
        complain("Defaults: cannot read " + file_);
        return std::nullopt;
    }
    auto bytes = readRegularFile(file_, PlistDocument::sizeLimit);
    if (!bytes && status.st_size <= static_cast<off_t>(PlistDocument::sizeLimit)) {
        complain("Defaults: cannot read " + file_);
        return std::nullopt;
    }
    auto parsed = bytes ? PlistDocument::parse(*bytes)
                        : PlistDocument::ParseResult{std::nullopt, "larger than 1 MiB"};
    // Not only a dictionary, but one that can be read.
    if (parsed.document && parsed.document->isDictionary() && parsed.document->toPropertyList())
        return std::move(parsed.document);
    if (!setAside(parsed.document ? "no dictionary" : parsed.error))
        return std::nullopt;
    return PlistDocument::emptyDictionary();
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

void FileUserDefaults::write(const PlistDocument& document) {
    if (folder_.empty())
        return complain("Defaults: not stored, as there is no home folder");
    auto xml = document.toXml();
    if (!xml || xml->size() > PlistDocument::sizeLimit)
        return complain("Defaults: not stored, as they would exceed 1 MiB");
    if (int error = makeFolders(folder_); error != 0)
        return complain("Defaults: cannot make " + folder_ + ": " + reason(error));
    if (int error = replaceFile(*xml); error != 0)
        return complain("Defaults: cannot write " + file_ + ": " + reason(error));
    lastComplaint_.clear();
}

int FileUserDefaults::replaceFile(std::span<const char> content) const {
    auto name = file_ + ".XXXXXX";
    FileDescriptor file(::mkostemp(name.data(), O_CLOEXEC));
    if (!file)
        return errno;
    int error = writeAll(file.get(), content);
    // Without this a power failure may leave the new name with nothing in it.
    if (error == 0 && ::fsync(file.get()) != 0)
        error = errno;
    if (error == 0 && ::rename(name.c_str(), file_.c_str()) != 0)
        error = errno;
    if (error != 0) {
        ::unlink(name.c_str());
        return error;
    }
    FileDescriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder)
        ::fsync(folder.get());
    return 0;
}

void FileUserDefaults::complain(const std::string& text) const {
    if (std::exchange(lastComplaint_, text) != text)
        log_.line(text);
}

}  // namespace zelvo::platform
