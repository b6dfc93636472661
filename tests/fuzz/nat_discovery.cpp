// What the network says before anything is known of it, and what lies in the journal.

#include <cstdlib>

#include "platform/linux/nat/base/MappingRecord.h"
#include "platform/linux/nat/upnp/SsdpMessage.h"
#include "platform/linux/nat/upnp/UpnpUrl.h"

using namespace zelvo::platform;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string location = text;
    if (const auto message = SsdpMessage::parse(ByteView(data, size))) {
        location = message->location;
    }
    if (const auto url = UpnpUrl::parse(location)) {
        const auto resolved = url->resolve(text);
        if (url->path.empty() || url->path[0] != '/' || (resolved && resolved->path[0] != '/')) {
            std::abort();
        }
    }
    if (const auto record = MappingRecord::parse(text)) {
        if (!MappingRecord::parse(record->text())) {
            std::abort();
        }
    }
    return 0;
}
