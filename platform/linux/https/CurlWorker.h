#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/https/CurlUrlSession.h"

namespace zelvo::platform {

class CurlExchange;

/// The thread that drives all exchanges of a session.
class CurlWorker {
  public:
    /// Runs on the worker, or inside `submit` or the destructor.
    using Finished = std::function<void(UrlResult)>;

    CurlWorker(MainQueue& mainQueue, CurlUrlSession::Options options);
    CurlWorker(const CurlWorker&) = delete;
    CurlWorker& operator=(const CurlWorker&) = delete;
    /// Cancels everything and waits for the thread.
    ~CurlWorker();

    /// Any thread. `finished` is called exactly once.
    void submit(UrlRequest request, Finished finished);

  private:
    struct Multi;

    void wakeUp();
    void run();
    void begin(std::unique_ptr<CurlExchange> exchange);
    void collect();
    void cancelAll();
    bool takeIncoming();

    MainQueue& mainQueue_;
    const CurlUrlSession::Options options_;
    std::unique_ptr<Multi> multi_;
    std::vector<std::unique_ptr<CurlExchange>> active_;

    std::mutex mutex_;
    std::vector<std::unique_ptr<CurlExchange>> incoming_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace zelvo::platform
