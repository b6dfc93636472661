#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "service/LinkStore.h"
#include "service/Reply.h"

namespace zelvo::service {

class ReachProbe;

/// What one can ask the service: to register a link, to replace its facts, to tell them, and to
/// forget it; and for a relay. What changes a link, only its owner may ask. Any thread.
class SharingEndpoints {
  public:
    struct Caller {
        std::string secret;   ///< the owner's, as it was shown; empty for none
        std::string address;  ///< of the connection
    };
    struct Answer {
        Reply reply;
        std::string secret;  ///< that the caller is to show from now on; empty for no change
    };
    /// Called exactly once, inside the call or later, on any thread.
    using Done = std::function<void(Answer)>;

    struct Options {
        std::function<Moment()> clock;
        /// Names of relays by their addresses, which hosts may register though they do not come
        /// from there.
        std::map<std::string, std::string> relays = {};
        /// What sends this owner to the relay of that name; empty where it fails. Null where no
        /// relay takes anybody from here.
        std::function<std::string(const LinkStore::Owner&, const std::string& relay)> ticketFor =
            {};
        /// Whether one more link may be made in the name of the owner's digest; null for always.
        std::function<bool(const LinkStore::Owner&)> mayCreate = {};
        /// Tries whether hosts can be reached, for them to know; outlives this object, null for
        /// not at all.
        ReachProbe* probe = nullptr;
    };

    SharingEndpoints(LinkStore& store, Options options)
        : store_(store), options_(std::move(options)) {}

    /// The name of the endpoint at this path of a URL, such as "get.php"; empty for none.
    static std::string_view nameOf(std::string_view path);
    /// What all paths begin with.
    static constexpr std::string_view Folder = "/app/4.8.1/sharing/";

    /// Answers the form that was posted to the path.
    void answer(std::string_view path, std::string_view body, const Caller& caller, Done done);

  private:
    struct Endpoint;
    static const Endpoint Endpoints[5];
    static const Endpoint* find(std::string_view path);

    void create(const Fields& fields, const Caller& caller, Done done);
    void update(const Fields& fields, const Caller& caller, Done done);
    void get(const Fields& fields, const Caller& caller, Done done);
    void remove(const Fields& fields, const Caller& caller, Done done);
    void sendToRelay(const Fields& fields, const Caller& caller, Done done);
    LinkStore::Registration registrationOf(const Fields& fields, const Caller& caller) const;
    std::function<void(const std::string& link)> probeOf(const Fields& fields,
                                                         const Caller& caller) const;

    LinkStore& store_;
    const Options options_;
};

}  // namespace zelvo::service
