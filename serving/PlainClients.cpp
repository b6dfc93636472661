#include "serving/PlainClients.h"

#include <sys/socket.h>

#include <algorithm>

namespace zelvo::serving {
namespace {

/// 0 for what is no socket.
std::uint64_t cookieOf(int socket) {
    std::uint64_t cookie = 0;
    socklen_t size = sizeof cookie;
    return getsockopt(socket, SOL_SOCKET, SO_COOKIE, &cookie, &size) == 0 ? cookie : 0;
}

}  // namespace

void PlainClients::come(int socket) {
    // The HTTP library tells nobody when it closes a connection, but the kernel knows. A number
    // that comes again was closed before.
    if (const auto old = find(socket); old != clients_.end())
        clients_.erase(old);
    if (clients_.size() >= most_)
        clients_.remove_if([](const Client& it) { return cookieOf(it.socket) != it.cookie; });
    while (clients_.size() >= most_) {
        // The library sees the end in the loop's next turn.
        shutdown(clients_.front().socket, SHUT_RDWR);
        clients_.pop_front();
    }
    clients_.push_back({socket, cookieOf(socket)});
}

void PlainClients::ask(int socket) {
    if (const auto it = find(socket); it != clients_.end())
        clients_.splice(clients_.end(), clients_, it);
}

std::list<PlainClients::Client>::iterator PlainClients::find(int socket) {
    return std::ranges::find(clients_, socket, &Client::socket);
}

}  // namespace zelvo::serving
