#include "platform/linux/screen_sharing/ServerProcess.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <sstream>
#include <string>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/netlink/TcpSockets.h"

namespace zelvo::platform {

namespace {

struct CloseDescriptorFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

}  // namespace

bool ServerProcess::listensOn(std::uint16_t port) const {
    if (pid_ <= 0 || !isRunning())
        return false;
    auto inode = tcpListener(port);
    return inode && holdsSocket(*inode);
}

bool ServerProcess::isRunning() const {
    auto text = readTextFile("/proc/" + std::to_string(pid_) + "/stat");
    if (!text)
        return false;
    if (!start_)
        return true;
    // The name, in parentheses, may itself hold blanks and parentheses. The start is the 22nd
    // value; the third follows the name.
    auto nameEnd = text->rfind(')');
    if (nameEnd == text->npos)
        return false;
    std::istringstream values(text->substr(nameEnd + 1));
    std::string skipped;
    for (int number = 3; number < 22; ++number)
        values >> skipped;
    std::int64_t start = 0;
    return values >> start && start == *start_;
}

bool ServerProcess::holdsSocket(std::uint32_t inode) const {
    auto name = "socket:[" + std::to_string(inode) + "]";
    std::unique_ptr<DIR, CloseDescriptorFolder> folder(
        ::opendir(("/proc/" + std::to_string(pid_) + "/fd").c_str()));
    if (!folder)
        return false;
    std::array<char, 64> target;
    while (const dirent* entry = ::readdir(folder.get())) {
        auto length =
            ::readlinkat(::dirfd(folder.get()), entry->d_name, target.data(), target.size());
        if (length > 0 &&
            name.compare(0, name.npos, target.data(), static_cast<std::size_t>(length)) == 0)
            return true;
    }
    return false;
}

}  // namespace zelvo::platform
