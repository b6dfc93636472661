#include "platform/linux/nat/upnp/UpnpDescription.h"

#include <miniupnpc/miniupnpc.h>

#include <string_view>

namespace zelvo::platform {

namespace {

bool isConnectionType(std::string_view type) {
    constexpr std::string_view Prefix = "urn:schemas-upnp-org:service:WAN";
    if (type.substr(0, Prefix.size()) != Prefix) {
        return false;
    }
    // It goes into a header line and into XML as it stands.
    if (type.find_first_not_of(
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789:-") !=
        std::string_view::npos) {
        return false;
    }
    type.remove_prefix(Prefix.size());
    return type.substr(0, 13) == "IPConnection:" || type.substr(0, 14) == "PPPConnection:";
}

}  // namespace

std::optional<UpnpService> readUpnpDescription(const std::string& xml, const UpnpUrl& location) {
    IGDdatas data{};
    parserootdesc(xml.c_str(), static_cast<int>(xml.size()), &data);
    for (const IGDdatas_service* service : {&data.first, &data.second}) {
        if (!isConnectionType(service->servicetype)) {
            continue;
        }
        auto base = data.urlbase[0] != '\0' ? UpnpUrl::parse(data.urlbase) : location;
        auto control = base ? base->resolve(service->controlurl) : std::nullopt;
        if (control && control->server.address == location.server.address) {
            return UpnpService{*control, service->servicetype};
        }
    }
    return std::nullopt;
}

}  // namespace zelvo::platform
