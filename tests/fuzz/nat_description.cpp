// What a gateway's web server sends: a response, arriving in pieces, that holds a description or
// the answer to an order. The first byte says how long the pieces are.

#include <cstdlib>

#include "platform/linux/nat/upnp/SoapMessage.h"

using namespace zelvo::platform;

namespace {

void readBody(const HttpResponse& response) {
    const UpnpUrl location{{0xc0a80101, 5000}, "/rootDesc.xml"};
    const auto service = readUpnpDescription(response.body, location);
    if (service) {
        if (service->control.server.address != location.server.address) {
            std::abort();
        }
        soapRequest(*service, "GetExternalIPAddress", {});
    }
    const SoapAnswer answer(response);
    answer.value("NewExternalIPAddress");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::size_t piece = data[0] == 0 ? text.size() + 1 : data[0];
    HttpResponseReader reader;
    for (std::size_t at = 0; at < text.size(); at += piece) {
        // A copy, so that a read past its end is seen.
        reader.feed(std::string(text.substr(at, piece)));
    }
    if (reader.end() == HttpResponseReader::State::Done) {
        if (reader.response().body.size() > HttpResponseReader::LongestBody) {
            std::abort();
        }
        readBody(reader.response());
    }
    // The body by itself, so that not every input has to find its way through the head first.
    readBody({200, std::string(text)});
    return 0;
}
