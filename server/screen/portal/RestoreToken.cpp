#include "server/screen/portal/RestoreToken.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileReading.h"

namespace zelvo::server {

namespace {

constexpr std::size_t longestToken = 1024;

}  // namespace

std::string RestoreToken::read() const {
    return platform::readTextFile(file_, longestToken).value_or("");
}

void RestoreToken::keep(const std::string& token) const {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(file_).parent_path(), error);
    const auto fresh = file_ + ".new";
    ::unlink(fresh.c_str());
    platform::FileDescriptor file(
        ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    const bool isWritten = file && ::write(file.get(), token.data(), token.size()) ==
                                       static_cast<ssize_t>(token.size());
    if (!isWritten || ::rename(fresh.c_str(), file_.c_str()) != 0)
        std::fprintf(stderr, "screensharingd: The desktop's leave cannot be kept in %s.\n",
                     file_.c_str());
}

void RestoreToken::drop() const {
    ::unlink(file_.c_str());
}

}  // namespace zelvo::server
