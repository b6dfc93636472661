#include "platform/linux/screen_sharing/ServerProcess.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

struct ListenerRequest {
    nlmsghdr header;
    inet_diag_req_v2 body;
};

struct ListenerAnswer {
    nlmsghdr header;
    inet_diag_msg body;
};

struct CloseDescriptorFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

/// The inode of the socket that the kernel would give a connection to the port. Asked for by its
/// addresses, so that the answer costs the same on a host with many sockets; none when nothing
/// listens.
std::optional<std::uint32_t> listener(std::uint16_t port) {
    FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    ListenerRequest request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.body.sdiag_family = AF_INET;
    request.body.sdiag_protocol = IPPROTO_TCP;
    request.body.idiag_states = 1U << TCP_LISTEN;
    request.body.id.idiag_sport = htons(port);
    request.body.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.body.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    // The kernel answers at once; only a broken one makes a caller wait.
    timeval limit{.tv_sec = 1, .tv_usec = 0};
    if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        ::send(socket.get(), &request, sizeof request, 0) != sizeof request)
        return std::nullopt;
    std::array<std::byte, 4096> buffer;
    auto size = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
    ListenerAnswer answer{};
    if (size < static_cast<ssize_t>(sizeof answer))
        return std::nullopt;
    std::memcpy(&answer, buffer.data(), sizeof answer);
    if (answer.header.nlmsg_type != SOCK_DIAG_BY_FAMILY || answer.body.idiag_state != TCP_LISTEN)
        return std::nullopt;
    return answer.body.idiag_inode;
}

}  // namespace

bool ServerProcess::listensOn(std::uint16_t port) const {
    if (pid_ <= 0 || !isRunning())
        return false;
    auto inode = listener(port);
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
