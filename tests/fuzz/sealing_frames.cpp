// The frames of a WebSocket and the head before them: however they arrive, the same comes out.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "sealing/WebSocket.h"
#include "sealing/WebSocketHead.h"

using namespace zelvo::sealing;

namespace {

constexpr std::size_t longest = 300;

void check(bool holds) {
    if (!holds)
        std::abort();
}

struct Heard {
    std::vector<std::string> messages;
    WebSocket::State state;
    friend bool operator==(const Heard&, const Heard&) = default;
};

Heard hear(WebSocket::Role role, std::string_view bytes, std::size_t part) {
    WebSocket socket(role);
    socket.setLongest(longest);
    Heard heard;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(part, bytes.size()))) {
        socket.receive(bytes.substr(0, part));
        while (auto message = socket.next()) {
            check(message->size() <= longest);
            heard.messages.push_back(std::move(*message));
        }
        check(socket.takeOutput().size() <= 2 * (WebSocket::longestControl + 6));
    }
    heard.state = socket.state();
    return heard;
}

template <class Reader>
std::pair<WebSocketHead::State, std::size_t> read(Reader reader, std::string_view bytes,
                                                  std::size_t part) {
    std::size_t left = bytes.size();
    while (left > 0 && reader.state() == WebSocketHead::State::Reading) {
        auto next = bytes.substr(bytes.size() - left, part);
        const auto given = next.size();
        reader.receive(next);
        left -= given - next.size();
    }
    check(reader.takeOutput().size() < 512);
    return {reader.state(), reader.state() == WebSocketHead::State::Done ? left : 0};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t part = data[0] % 64 + 1;
    for (const auto role : {WebSocket::Role::Server, WebSocket::Role::Client})
        check(hear(role, bytes, bytes.size()) == hear(role, bytes, part));
    check(read(UpgradeRequestReader(), bytes, bytes.size()) ==
          read(UpgradeRequestReader(), bytes, part));
    const std::array<unsigned char, 16> nonce{};
    check(read(UpgradeReplyReader(nonce), bytes, bytes.size()) ==
          read(UpgradeReplyReader(nonce), bytes, part));
    return 0;
}
