#include "platform/linux/link_key/RegisteredLink.h"

namespace zelvo::platform {

std::optional<std::string> registeredLink(const std::optional<PropertyList>& reply) {
    const auto* status = reply ? reply->find("StatusCode") : nullptr;
    const auto* link = reply ? reply->find("link") : nullptr;
    const bool isSuccess = status && ((status->integer() && *status->integer() == 0) ||
                                      (status->real() && *status->real() == 0));
    if (!isSuccess || !link || !link->string() || link->string()->empty())
        return std::nullopt;
    return *link->string();
}

}  // namespace zelvo::platform
