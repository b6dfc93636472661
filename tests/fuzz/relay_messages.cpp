// What a relay and its hosts say to each other, from either side: the first byte says which.

#include <cstdint>
#include <cstdlib>

#include "relay/messages/RelayHeads.h"
#include "relay/messages/RelayLines.h"
#include "relay/tickets/Tickets.h"

using namespace zelvo::relay;

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

void readAsRelay(std::string_view bytes) {
    const auto length = headLength(bytes);
    if (length == 0 || length == bytes.npos)
        return;
    require(length <= bytes.size() && length <= LongestHead);
    const auto request = readRequest(bytes.substr(0, length));
    // What has been understood can be said again, and holds nothing that ends a line.
    if (const auto* host = std::get_if<HostRequest>(&request))
        require(std::get<HostRequest>(readRequest(textOf(*host))).ticket == host->ticket);
    if (const auto* back = std::get_if<DialBackRequest>(&request))
        require(std::get<DialBackRequest>(readRequest(textOf(*back))).token == back->token);
    if (const auto* viewer = std::get_if<ViewerRequest>(&request)) {
        require(viewer->number >= FirstNumber && viewer->number <= LastNumber);
        const auto text = textForHost(*viewer);
        require(headLength(text) == text.size());
    }
}

void readAsHost(std::string_view bytes) {
    if (const auto reply = readReply(bytes); reply && reply->number > 0)
        require(readReply(textOf(*reply))->lease == reply->lease);
}

std::string readLines(std::string_view bytes, std::size_t step) {
    LineReader lines;
    std::string heard;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(step, bytes.size())))
        if (!lines.receive(bytes.substr(0, step), [&](const Line& line) {
                heard += textOf(line);
                return true;
            }))
            return "";
    return heard;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    switch (data[0] % 4) {
        case 0:
            readAsRelay(bytes);
            break;
        case 1:
            readAsHost(bytes);
            break;
        case 2:
            require(readLines(bytes, 1) == readLines(bytes, 7));
            break;
        default:
            Ticket::read(bytes, {});
            break;
    }
    return 0;
}
