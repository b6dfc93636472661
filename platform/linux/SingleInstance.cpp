#include "platform/linux/SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <system_error>

namespace zelvo::platform {

namespace {

FileDescriptor openLock(const std::string& path) {
    constexpr int flags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | flags, 0600));
    // One that is there can be locked also where nothing can be written.
    if (!file)
        file.reset(::open(path.c_str(), O_RDONLY | flags));
    return file;
}

}  // namespace

SingleInstance::SingleInstance(const std::string& stateFolder, const std::string& runtimeFolder,
                               const std::string& configFolder) {
    std::vector<std::string> paths;
    if (!stateFolder.empty()) {
        std::error_code failed;
        std::filesystem::create_directories(stateFolder, failed);
        paths.push_back(stateFolder + "/running");
    }
    if (!runtimeFolder.empty()) {
        auto whose = std::to_string(std::hash<std::string>()(configFolder));
        paths.push_back(runtimeFolder + "/zelvo-running-" + whose);
    }
    for (const auto& path : paths) {
        auto file = openLock(path);
        if (!file)
            continue;
        if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
            locks_.push_back(std::move(file));
            outcome_ = Outcome::First;
        } else if (errno == EWOULDBLOCK) {
            locks_.clear();
            outcome_ = Outcome::Second;
            return;
        }
    }
}

}  // namespace zelvo::platform
