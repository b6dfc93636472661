#include "platform/linux/privileges/helper/TrustedFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace zelvo::platform {

namespace {

/// Empty when the open file is of that type and root's alone.
std::string complaintAbout(const FileDescriptor& file, const std::string& path, mode_t type) {
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0)
        return path + " cannot be opened without following a link: " + std::strerror(errno) + ".";
    if ((status.st_mode & S_IFMT) != type)
        return path + " is not what it should be.";
    if (status.st_uid != 0)
        return path + " does not belong to root.";
    if (status.st_mode & (S_IWGRP | S_IWOTH))
        return path + " can be changed by others than root.";
    return "";
}

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

FileDescriptor openBelow(const FileDescriptor& folder, const std::string& name) {
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    return FileDescriptor(::openat(folder.get(), name.c_str(), flags));
}

}  // namespace

TrustedFolder::TrustedFolder(std::string path)
    : path_(std::move(path)), folder_(::open("/", O_DIRECTORY | O_CLOEXEC)) {
    complaint_ = complaintAbout(folder_, "/", S_IFDIR);
    for (std::size_t start = 1; complaint_.empty() && start < path_.size();) {
        auto end = std::min(path_.find('/', start), path_.size());
        folder_ = openBelow(folder_, path_.substr(start, end - start));
        complaint_ = complaintAbout(folder_, path_.substr(0, end), S_IFDIR);
        start = end + 1;
    }
}

std::optional<std::string> TrustedFolder::complaintAboutScript(const std::string& name) const {
    if (!complaint_.empty())
        return complaint_;
    if (auto complaint = complaintAboutFile(name))
        return complaint;
    std::unique_ptr<DIR, CloseFolder> entries(
        ::fdopendir(::openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    if (!entries)
        return path_ + " cannot be read: " + std::strerror(errno) + ".";
    while (const auto* entry = ::readdir(entries.get())) {
        std::string_view other = entry->d_name;
        if (other.ends_with(".sh")) {
            if (auto complaint = complaintAboutFile(std::string(other)))
                return complaint;
        }
    }
    return std::nullopt;
}

std::optional<std::string> TrustedFolder::complaintAboutFile(const std::string& name) const {
    auto complaint = complaintAbout(openBelow(folder_, name), pathOf(name), S_IFREG);
    return complaint.empty() ? std::nullopt : std::optional(complaint);
}

}  // namespace zelvo::platform
