#include "platform/linux/https/SharingRequest.h"

#include <string_view>

namespace zelvo::platform {

namespace {

/// The value of a field as it travels. The last one counts: the link's own fields come after those
/// in which a computer's name may hold anything.
std::string_view field(std::string_view form, std::string_view name) {
    for (auto at = form.rfind(name); at != form.npos; at = form.rfind(name, at - 1)) {
        auto value = form.substr(at + name.size());
        if ((at == 0 || form[at - 1] == '&') && value.starts_with('='))
            return value.substr(1, value.find('&') - 1);
        if (at == 0)
            break;
    }
    return {};
}

}  // namespace

SharingRequest SharingRequest::of(const UrlRequest& request) {
    const auto slash = request.url.rfind('/') + 1;
    const auto endpoint = request.url.substr(slash);
    const std::string_view form(reinterpret_cast<const char*>(request.body.data()),
                                request.body.size());
    Kind kind = Kind::Other;
    std::string_view link;
    if (endpoint == "create.php") {
        kind = Kind::Creation;
        link = field(form, "permanentSharedLink");
    } else if (endpoint == "delete.php") {
        kind = Kind::Withdrawal;
        link = field(form, "link");
    } else if (endpoint == "update.php") {
        if (field(form, "availabilityStatus") == "1")
            kind = Kind::Withdrawal;
        link = field(form, "sharedLink");
    }
    return {kind, link.empty() ? std::string() : request.url.substr(0, slash).append(link)};
}

}  // namespace zelvo::platform
