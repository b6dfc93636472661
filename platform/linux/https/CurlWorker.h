#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/https/CurlUrlSession.h"

namespace zelvo::platform {

class CookieJar;
class CurlExchange;

/// The thread that drives all exchanges of a session.
class CurlWorker {
  public:
    /// Runs on the worker, or inside `submit` or the destructor.
    using Finished = ExchangeFinished;

    CurlWorker(MainQueue& mainQueue, CurlUrlSession::Options options);
    CurlWorker(const CurlWorker&) = delete;
    CurlWorker& operator=(const CurlWorker&) = delete;
    /// Cancels everything and waits for the thread.
    ~CurlWorker();

    /// Any thread. `finished` is called exactly once.
    void submit(UrlRequest request, Finished finished, std::chrono::milliseconds connectWithin);
    /// Any thread.
    void quitBegins();

  private:
    struct Multi;

    void wakeUp();
    void run();
    void begin(std::unique_ptr<CurlExchange> exchange);
    void collect();
    void hurry();
    void finishOverdue();
    void cancelAll();
    bool takeIncoming();
    void keepCookies();
    void beat();

    MainQueue& mainQueue_;
    const CurlUrlSession::Options options_;
    std::unique_ptr<Multi> multi_;
    /// After what its handles stand on, and before them.
    std::unique_ptr<CookieJar> cookies_;
    bool cookiesAreLost_ = false;
    std::chrono::steady_clock::time_point lastBeat_ = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<CurlExchange>> active_;
    bool hurries_ = false;

    std::mutex mutex_;
    std::vector<std::unique_ptr<CurlExchange>> incoming_;
    bool ending_ = false;
    bool quitBegun_ = false;
    std::thread thread_;
};

}  // namespace zelvo::platform
