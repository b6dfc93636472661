// What strangers say at the door, and what viewers say inside.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "server/gate/RfbHandshake.h"
#include "server/gate/ViewerMessages.h"

using namespace zelvo::server;

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

std::string passed(std::string_view bytes, std::size_t cut, bool inputPasses) {
    ViewerMessages messages;
    messages.setInputPasses(inputPasses);
    std::string to;
    if (messages.receive(bytes.substr(0, cut), to))
        messages.receive(bytes.substr(cut), to);
    return to;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t cut = bytes.empty() ? 0 : data[0] % (bytes.size() + 1);

    RfbHandshake handshake;
    for (auto left = bytes; !left.empty() && handshake.wanted() > 0;) {
        const auto part = left.substr(0, std::min(handshake.wanted(), cut + 1));
        handshake.receive(part);
        left.remove_prefix(part.size());
        check(handshake.takeOutput().size() < 64);
    }
    handshake.tlsIsUp();
    if (handshake.state() == RfbHandshake::State::Done)
        check(handshake.wanted() == 0 && handshake.admission().size() <= 4);

    const auto whole = passed(bytes, bytes.size(), true);
    // However it arrives, the same goes on; never more than came, and without input never more.
    check(whole == passed(bytes, cut, true) && bytes.starts_with(whole));
    check(passed(bytes, cut, false).size() <= whole.size());
    return 0;
}
