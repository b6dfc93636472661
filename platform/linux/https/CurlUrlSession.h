#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/UrlSession.h"
#include "platform/linux/https/ExchangeReport.h"

namespace zelvo::platform {

class CurlWorker;

using ExchangeFinished = std::function<void(UrlResult, const ExchangeReport&)>;

/// HTTPS by libcurl on one worker, which starts with the first request and keeps connections for
/// later ones. An error's code is that of libcurl (CURLcode).
class CurlUrlSession : public UrlSession {
  public:
    struct Options {
        /// The file of trusted certificate authorities; empty for the system's own.
        std::string certificateFile;
        /// Once a quit has begun: how long an exchange, also one that is under way, has to connect,
        /// and then again to be answered.
        std::chrono::milliseconds patienceAtQuit{5000};
        std::size_t bodyLimit = std::size_t{1} << 20;
        /// Hears on the main thread the address from which a peer saw a request come, where it
        /// tells by a "Client-Address" header.
        std::function<void(const std::string& address)> seenFrom = {};
        /// Where cookies are kept: on the disk before the reply is handed on that brings them.
        /// Empty for as long as the session lasts.
        std::string cookieFile = {};
        /// Hears on the main thread that they could not be written, and why; an empty error once
        /// they are written after all.
        std::function<void(const std::string& error)> cookiesAreLost = {};
        /// Called on the main thread about that often while the computer is awake, once there has
        /// been an exchange.
        std::chrono::milliseconds beatsEvery = std::chrono::minutes(10);
        std::function<void()> beat = {};
    };

    /// The queue outlives this object. Once it has been closed, exchanges end with an error soon.
    CurlUrlSession(MainQueue& mainQueue, Options options);
    CurlUrlSession(const CurlUrlSession&) = delete;
    CurlUrlSession& operator=(const CurlUrlSession&) = delete;
    /// Cancels the exchanges that are under way: their completions do not run, and whoever waits
    /// in sendSynchronously gets an error. Serial queues of this session have ended before.
    ~CurlUrlSession() override;

    void dataTask(UrlRequest request, std::function<void(UrlResult)> done) override;
    /// The same, with the report, and with a limit to connecting.
    void exchange(UrlRequest request, ExchangeFinished done,
                  std::chrono::milliseconds connectWithin = std::chrono::hours(1));
    UrlResult sendSynchronously(const UrlRequest& request) override;
    std::unique_ptr<SerialQueue> makeSerialQueue() override;

    /// From now on nothing takes long. Main thread only.
    void quitBegins();

  private:
    /// Completions stay on the main thread, so that whatever they hold is released there, too.
    using Completions = std::map<std::uint64_t, ExchangeFinished>;

    MainQueue& mainQueue_;
    std::uint64_t next_ = 0;
    std::shared_ptr<Completions> completions_;
    std::unique_ptr<CurlWorker> worker_;
};

}  // namespace zelvo::platform
