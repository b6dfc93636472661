#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"
#include "platform/UrlSession.h"
#include "sealing/ShareLink.h"

namespace zelvo::platform {

class PropertyListReader;

/// Stands before the session to the sharing service, so that the link that the core keeps and
/// shows has a key in it ("identifier#key") of which the service never hears: it is put behind the
/// "link" of a registration's reply, and taken off wherever a request names the link. The key is
/// made with a new identifier and comes back with what the core has kept of it, until the link is
/// deleted. Of a reply that gives a link, the core gets "StatusCode" and "link" alone. A link whose
/// identifier could not be read out of such a text again stays as it is, without a key.
class LinkKeySession : public UrlSession {
  public:
    struct Options {
        /// A reply with these members; none where it cannot be written.
        std::function<std::optional<std::vector<std::byte>>(const PropertyList::Dictionary&)> write;
        /// Which link leads to this computer from now on; null once none with a key does. Main
        /// thread.
        std::function<void(const sealing::ShareLink* link)> changed;
        /// Whether the link that was registered has a key; told of each. Main thread.
        std::function<void(bool hasKey)> registered;
    };

    /// All outlive this object.
    LinkKeySession(UrlSession& session, const PropertyListReader& propertyLists, Options options);
    LinkKeySession(const LinkKeySession&) = delete;
    LinkKeySession& operator=(const LinkKeySession&) = delete;

    void dataTask(UrlRequest request, std::function<void(UrlResult)> done) override;
    UrlResult sendSynchronously(const UrlRequest& request) override;
    std::unique_ptr<SerialQueue> makeSerialQueue() override;

  private:
    UrlResult withKey(UrlResult result, const std::optional<sealing::ShareLink>& kept);
    bool wasDeleted(const sealing::ShareLink& link) const;
    void linkIs(const sealing::ShareLink* link);

    UrlSession& session_;
    const PropertyListReader& propertyLists_;
    const Options options_;
    /// Of the link that leads here, where it has a key.
    std::string identifier_;
    /// Since this object began: none of them comes back with its key.
    std::vector<sealing::ShareLink> deleted_;
};

}  // namespace zelvo::platform
