#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/UrlSession.h"

namespace zelvo::platform {

class CurlWorker;

/// HTTPS by libcurl on one worker, which starts with the first request and keeps connections for
/// later ones. An error's code is that of libcurl (CURLcode).
class CurlUrlSession : public UrlSession {
  public:
    struct Options {
        /// The file of trusted certificate authorities; empty for the system's own.
        std::string certificateFile;
        std::chrono::milliseconds connectTimeout{5000};
        /// How long what was sent may stay unacknowledged. A connection whose network has gone
        /// ends then, and not only with the request's own time-out.
        std::chrono::milliseconds deliveryTimeout{10000};
        std::size_t bodyLimit = std::size_t{1} << 20;
        /// Hears on the main thread the address from which a peer saw a request come, where it
        /// tells by a "Client-Address" header.
        std::function<void(const std::string& address)> seenFrom = {};
    };

    /// The queue outlives this object. Once it has been closed, exchanges end with an error soon.
    CurlUrlSession(MainQueue& mainQueue, Options options);
    CurlUrlSession(const CurlUrlSession&) = delete;
    CurlUrlSession& operator=(const CurlUrlSession&) = delete;
    /// Cancels the exchanges that are under way: their completions do not run, and whoever waits
    /// in sendSynchronously gets an error. Serial queues of this session have ended before.
    ~CurlUrlSession() override;

    void dataTask(UrlRequest request, std::function<void(UrlResult)> done) override;
    UrlResult sendSynchronously(const UrlRequest& request) override;
    std::unique_ptr<SerialQueue> makeSerialQueue() override;

  private:
    /// Completions stay on the main thread, so that whatever they hold is released there, too.
    using Completions = std::map<std::uint64_t, std::function<void(UrlResult)>>;

    MainQueue& mainQueue_;
    std::uint64_t next_ = 0;
    std::shared_ptr<Completions> completions_;
    std::unique_ptr<CurlWorker> worker_;
};

}  // namespace zelvo::platform
