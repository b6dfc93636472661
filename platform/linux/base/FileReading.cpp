#include "platform/linux/base/FileReading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

std::optional<std::vector<std::byte>> readRegularFile(const std::string& path, std::size_t limit) {
    // Opening a FIFO would wait for its writer.
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    // The size is a guess only: files of /proc and /sys tell none, and any file may grow.
    std::vector<std::byte> bytes;
    constexpr std::size_t step = 4096;
    for (;;) {
        auto filled = bytes.size();
        auto wanted = static_cast<std::size_t>(status.st_size) > filled
                          ? static_cast<std::size_t>(status.st_size) - filled + 1
                          : step;
        wanted = std::min(wanted, limit + 1 - filled);
        bytes.resize(filled + wanted);
        auto count = ::read(file.get(), bytes.data() + filled, wanted);
        if (count < 0 && errno == EINTR)
            count = 0;
        else if (count <= 0) {
            bytes.resize(filled);
            return count == 0 ? std::optional(std::move(bytes)) : std::nullopt;
        }
        bytes.resize(filled + static_cast<std::size_t>(count));
        if (bytes.size() > limit)
            return std::nullopt;
    }
}

std::optional<std::string> readTextFile(const std::string& path, std::size_t limit) {
    auto bytes = readRegularFile(path, limit);
    if (!bytes)
        return std::nullopt;
    return std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size());
}

std::string_view trimmed(std::string_view text) {
    constexpr const char* blanks = " \t\r\n";
    auto first = text.find_first_not_of(blanks);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string trimmed(const std::string& text) {
    return std::string(trimmed(std::string_view(text)));
}

}  // namespace zelvo::platform
