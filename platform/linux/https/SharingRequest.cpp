#include "platform/linux/https/SharingRequest.h"

namespace zelvo::platform {

namespace {

/// The value of a field as it travels. The last one counts: the link's own fields come after those
/// in which a computer's name may hold anything.
std::string field(const std::string& form, const std::string& name) {
    const auto at = form.rfind("&" + name + "=");
    if (at == form.npos)
        return {};
    const auto value = at + name.size() + 2;
    return form.substr(value, form.find('&', value) - value);
}

}  // namespace

SharingRequest SharingRequest::of(const UrlRequest& request) {
    const auto slash = request.url.rfind('/') + 1;
    const auto endpoint = request.url.substr(slash);
    std::string form = "&";
    form.append(reinterpret_cast<const char*>(request.body.data()), request.body.size());
    Kind kind = Kind::Other;
    std::string link;
    if (endpoint == "create.php") {
        kind = Kind::Creation;
        link = field(form, "permanentSharedLink");
    } else if (endpoint == "get.php") {
        kind = Kind::Inquiry;
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
