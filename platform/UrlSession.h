#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Error.h"
#include "platform/MainQueue.h"

namespace zelvo::platform {

enum class CachePolicy { UseProtocolCachePolicy, ReloadIgnoringLocalCacheData };

struct UrlRequest {
    std::string url;
    CachePolicy cachePolicy = CachePolicy::UseProtocolCachePolicy;
    /// For the whole exchange.
    std::chrono::seconds timeout{60};
    std::string method = "GET";
    /// Name and value, in the order sent.
    std::vector<std::pair<std::string, std::string>> headers;
    std::vector<std::byte> body;
};

/// What came of an exchange: the body, possibly empty, whatever the HTTP status; or the error.
struct UrlResult {
    std::optional<std::vector<std::byte>> data;
    std::optional<Error> error;
};

/// HTTPS exchanges. Certificates are always verified, redirects not followed, anything but https
/// refused; the limits give an error: the request's time-out, 1 MiB of body, and patience once the
/// application quits.
class UrlSession {
  public:
    virtual ~UrlSession() = default;

    /// Starts the exchange. `done` runs exactly once, later, on the main queue; where the main
    /// queue has been closed it is dropped and nothing is sent. Main thread only.
    virtual void dataTask(UrlRequest request, std::function<void(UrlResult)> done) = 0;

    /// The same on the calling thread, which it blocks. Any thread.
    virtual UrlResult sendSynchronously(const UrlRequest& request) = 0;

    /// A serial queue for work that blocks on exchanges. Main thread only.
    virtual std::unique_ptr<SerialQueue> makeSerialQueue() = 0;
};

}  // namespace zelvo::platform
