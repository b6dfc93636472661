#include "platform/qt/core/LocalSocket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace zelvo::platform {

LocalSocket::LocalSocket(QByteArray path, bool isAbstract, std::chrono::milliseconds patience)
    : descriptor_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (isAbstract)
        path.prepend('\0');
    if (descriptor_ < 0 || path.size() >= static_cast<qsizetype>(sizeof address.sun_path))
        return;
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    auto length = offsetof(sockaddr_un, sun_path) + static_cast<std::size_t>(path.size()) +
                  (isAbstract ? 0 : 1);
    const timeval limit{.tv_sec = patience.count() / 1000,
                        .tv_usec = patience.count() % 1000 * 1000};
    // The limit for sending is also that for connecting, which a full queue keeps waiting.
    ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    isConnected_ = ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address),
                             static_cast<socklen_t>(length)) == 0;
    isKeptWaiting_ = !isConnected_ && errno == EAGAIN;
}

LocalSocket::~LocalSocket() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool LocalSocket::answers(const QByteArray& question) {
    char answer;
    return ::send(descriptor_, question.constData(), static_cast<std::size_t>(question.size()),
                  MSG_NOSIGNAL) >= 0 &&
           (::recv(descriptor_, &answer, 1, 0) >= 0 || errno != EAGAIN);
}

}  // namespace zelvo::platform
