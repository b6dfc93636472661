// The frames of a WebSocket, to either side: however they arrive, the same comes out.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "sealing/WebSocket.h"

using namespace zelvo::sealing;

namespace {

constexpr std::size_t longest = 300;

std::pair<std::vector<std::string>, WebSocket::State> hear(WebSocket::Role role,
                                                           std::string_view bytes,
                                                           std::size_t part) {
    WebSocket socket(role);
    socket.setLongest(longest);
    std::vector<std::string> messages;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(part, bytes.size()))) {
        socket.receive(bytes.substr(0, part));
        while (auto message = socket.next())
            messages.push_back(std::move(*message));
        if (socket.takeOutput().size() > 2 * (WebSocket::longestControl + 6) ||
            (!messages.empty() && messages.back().size() > longest))
            std::abort();
    }
    return {messages, socket.state()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    for (const auto role : {WebSocket::Role::Server, WebSocket::Role::Client}) {
        if (hear(role, bytes, bytes.size()) != hear(role, bytes, data[0] % 64 + 1))
            std::abort();
    }
    return 0;
}
