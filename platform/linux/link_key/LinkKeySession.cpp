#include "platform/linux/link_key/LinkKeySession.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/PropertyListReader.h"
#include "platform/linux/link_key/RegisteredLink.h"

namespace zelvo::platform {

namespace {

using namespace std::string_view_literals;
using sealing::ShareLink;

constexpr auto Scheme = "zelvo://"sv;
constexpr std::array NamesOfTheLink = {"link"sv, "sharedLink"sv, "permanentSharedLink"sv};
/// As a form has it.
constexpr auto Hash = "%23"sv;

/// None where the text is not an identifier with a key behind it.
std::optional<ShareLink> readLink(std::string_view identifier, std::string_view key) {
    auto parsed =
        sealing::parseLink(std::string(Scheme).append(identifier) + '#' + std::string(key));
    auto* link = std::get_if<ShareLink>(&parsed);
    return link ? std::optional(std::move(*link)) : std::nullopt;
}

std::string_view takeTo(char end, std::string_view& text) {
    const auto part = text.substr(0, text.find(end));
    text.remove_prefix(std::min(text.size(), part.size() + 1));
    return part;
}

/// What a request says once it says no key any more.
struct Bare {
    std::string form;
    /// The link that had one, with it.
    std::optional<ShareLink> link;
    bool makesUnavailable = false;
};

Bare bareForm(std::string_view form) {
    Bare bare;
    while (!form.empty()) {
        const auto field = takeTo('&', form);
        auto value = field;
        const auto name = takeTo('=', value);
        bare.makesUnavailable |= field == "availabilityStatus=1"sv;
        if (!bare.form.empty())
            bare.form += '&';
        const auto hash = value.find(Hash);
        const bool mayHaveKey = hash != value.npos && std::ranges::count(NamesOfTheLink, name) > 0;
        auto link = mayHaveKey ? readLink(value.substr(0, hash), value.substr(hash + Hash.size()))
                               : std::nullopt;
        bare.form += link ? std::string(name) + '=' + link->identifier : std::string(field);
        if (link)
            bare.link = std::move(link);
    }
    return bare;
}

Bare takeKeyOff(UrlRequest& request) {
    auto bare = bareForm({reinterpret_cast<const char*>(request.body.data()), request.body.size()});
    const auto bytes = std::as_bytes(std::span(bare.form));
    if (bare.link)
        request.body.assign(bytes.begin(), bytes.end());
    return bare;
}

}  // namespace

LinkKeySession::LinkKeySession(UrlSession& session, const PropertyListReader& propertyLists,
                               Options options)
    : session_(session), propertyLists_(propertyLists), options_(std::move(options)) {}

void LinkKeySession::dataTask(UrlRequest request, std::function<void(UrlResult)> done) {
    auto bare = takeKeyOff(request);
    const auto endpoint = request.url.substr(request.url.rfind('/') + 1);
    const bool withdraws =
        endpoint == "delete.php" || (endpoint == "update.php" && bare.makesUnavailable);
    // At once: whoever tries it from now on is too late, whatever becomes of the request.
    if (withdraws && bare.link && bare.link->identifier == identifier_)
        linkIs(nullptr);
    // The core may still keep it, where its settings could not be written.
    if (endpoint == "delete.php" && bare.link)
        deleted_.push_back(*bare.link);
    if (endpoint == "create.php")
        done = [this, kept = std::move(bare.link), done = std::move(done)](UrlResult result) {
            done(withKey(std::move(result), kept));
        };
    session_.dataTask(std::move(request), std::move(done));
}

UrlResult LinkKeySession::withKey(UrlResult result, const std::optional<ShareLink>& kept) {
    const auto identifier =
        registeredLink(result.data ? propertyLists_.parse(*result.data).value : std::nullopt);
    if (!identifier)
        return result;
    // It would be taken for our own key, and whoever made it up would know it.
    if (std::string_view rest = *identifier; readLink(takeTo('#', rest), rest)) {
        linkIs(nullptr);
        return {std::nullopt, Error{UrlErrorDomain, 0, "The service gave a link with a key"}};
    }
    const bool isKept = kept && kept->identifier == *identifier && !wasDeleted(*kept);
    ShareLink link{*identifier, isKept ? kept->key : sealing::newLinkKey()};
    const auto text = sealing::linkText(link);
    // Only what the core reads: whatever else the service said may not be readable once it is
    // written, and what the core cannot read it logs, with the key.
    auto written = text ? options_.write({{"StatusCode", std::int64_t{0}},
                                          {"link", text->substr(Scheme.size())}})
                        : std::nullopt;
    linkIs(written ? &link : nullptr);
    options_.registered(written.has_value());
    if (written)
        result.data = std::move(written);
    return result;
}

bool LinkKeySession::wasDeleted(const ShareLink& link) const {
    return std::ranges::any_of(deleted_, [&](const ShareLink& deleted) {
        return deleted.identifier == link.identifier && deleted.key.view() == link.key.view();
    });
}

void LinkKeySession::linkIs(const ShareLink* link) {
    if (!link && identifier_.empty())
        return;
    identifier_ = link ? link->identifier : std::string();
    options_.changed(link);
}

UrlResult LinkKeySession::sendSynchronously(const UrlRequest& request) {
    auto bare = request;
    takeKeyOff(bare);
    return session_.sendSynchronously(bare);
}

std::unique_ptr<SerialQueue> LinkKeySession::makeSerialQueue() {
    return session_.makeSerialQueue();
}

}  // namespace zelvo::platform
