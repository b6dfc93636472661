#include "platform/linux/https/CurlWorker.h"

#include <algorithm>
#include <utility>

#include "platform/linux/base/Debug.h"
#include "platform/linux/base/ThreadQueue.h"
#include "platform/linux/https/CookieJar.h"
#include "platform/linux/https/CurlExchange.h"

namespace zelvo::platform {

namespace {

/// How soon exchanges end after the main queue has been closed or their time at quit is over, in
/// milliseconds.
constexpr int pollWhileActive = 250;

}  // namespace

/// libcurl's global state, which is counted, with one set of connections.
struct CurlWorker::Multi {
    Multi() : isReady(curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK) {
        if (isReady)
            handle = curl_multi_init();
    }
    Multi(const Multi&) = delete;
    Multi& operator=(const Multi&) = delete;
    ~Multi() {
        if (handle)
            curl_multi_cleanup(handle);
        if (isReady)
            curl_global_cleanup();
    }

    bool isReady;
    CURLM* handle = nullptr;
};

CurlWorker::CurlWorker(MainQueue& mainQueue, CurlUrlSession::Options options)
    : mainQueue_(mainQueue), options_(std::move(options)) {}

CurlWorker::~CurlWorker() {
    {
        std::lock_guard lock(mutex_);
        ending_ = true;
        wakeUp();
    }
    if (thread_.joinable())
        thread_.join();
}

void CurlWorker::submit(UrlRequest request, Finished finished,
                        std::chrono::milliseconds connectWithin) {
    auto exchange =
        std::make_unique<CurlExchange>(std::move(request), std::move(finished), connectWithin);
    {
        std::lock_guard lock(mutex_);
        if (!ending_) {
            incoming_.push_back(std::move(exchange));
            if (!thread_.joinable())
                thread_ = std::thread([this] { run(); });
            wakeUp();
            return;
        }
    }
    exchange->finish(CURLE_FAILED_INIT);
}

void CurlWorker::quitBegins() {
    std::lock_guard lock(mutex_);
    quitBegun_ = true;
    wakeUp();
}

void CurlWorker::wakeUp() {
    // A worker that has not come so far looks for work before it waits.
    if (multi_ && multi_->handle)
        curl_multi_wakeup(multi_->handle);
}

void CurlWorker::run() {
    // SIGPIPE among them, which a peer that has gone would raise.
    blockSignals();
    // Here and not earlier, as it takes milliseconds that the caller of the first request can
    // spare.
    auto multi = std::make_unique<Multi>();
    {
        std::lock_guard lock(mutex_);
        ending_ = ending_ || !multi->handle;
        multi_ = std::move(multi);
    }
    cookies_ = std::make_unique<CookieJar>(options_.cookieFile);
    // New work and the end wake the worker up.
    const auto pollWhileIdle = static_cast<int>(options_.beatsEvery.count());
    while (takeIncoming()) {
        int running = 0;
        curl_multi_perform(multi_->handle, &running);
        collect();
        finishOverdue();
        if (!mainQueue_.isOpen())
            cancelAll();
        beat();
        curl_multi_poll(multi_->handle, nullptr, 0,
                        active_.empty() ? pollWhileIdle : pollWhileActive, nullptr);
    }
    cancelAll();
}

bool CurlWorker::takeIncoming() {
    std::vector<std::unique_ptr<CurlExchange>> taken;
    bool goesOn = false;
    bool quitBegun = false;
    {
        std::lock_guard lock(mutex_);
        taken.swap(incoming_);
        goesOn = !ending_;
        quitBegun = quitBegun_;
    }
    if (quitBegun)
        hurry();
    for (auto& exchange : taken) {
        if (goesOn && mainQueue_.isOpen())
            begin(std::move(exchange));
        else
            exchange->finish(CURLE_ABORTED_BY_CALLBACK);
    }
    return goesOn;
}

void CurlWorker::begin(std::unique_ptr<CurlExchange> exchange) {
    auto* handle = exchange->prepare(options_);
    if (handle)
        cookies_->lend(handle);
    if (handle && hurries_) {
        exchange->hurry(options_.patienceAtQuit);
        // A name server that does not answer would take all of the time.
        exchange->trustOldAddresses();
        // Nor is there time for finding out that a connection leads nowhere any more.
        exchange->useNoOldConnection();
    }
    if (!handle || curl_multi_add_handle(multi_->handle, handle) != CURLM_OK)
        return exchange->finish(CURLE_FAILED_INIT);
    active_.push_back(std::move(exchange));
    debug("https", "exchanges under way: " + std::to_string(active_.size()));
}

void CurlWorker::collect() {
    int left = 0;
    while (const auto* message = curl_multi_info_read(multi_->handle, &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        auto code = message->data.result;
        auto* handle = message->easy_handle;
        auto found = std::find_if(active_.begin(), active_.end(), [&](const auto& exchange) {
            return exchange->handle() == handle;
        });
        curl_multi_remove_handle(multi_->handle, handle);
        if (found == active_.end())
            continue;
        auto exchange = std::move(*found);
        active_.erase(found);
        if (auto address = exchange->replyHeader("Client-Address");
            options_.seenFrom && !address.empty())
            mainQueue_.async([seenFrom = options_.seenFrom, address] { seenFrom(address); });
        keepCookies();
        exchange->finish(code);
    }
}

void CurlWorker::keepCookies() {
    const auto error = cookies_->keep();
    const bool wereLost = std::exchange(cookiesAreLost_, !error.empty());
    if ((cookiesAreLost_ || wereLost) && options_.cookiesAreLost)
        mainQueue_.async([lost = options_.cookiesAreLost, error] { lost(error); });
}

void CurlWorker::beat() {
    const auto now = std::chrono::steady_clock::now();
    if (!options_.beat || now - lastBeat_ < options_.beatsEvery)
        return;
    lastBeat_ = now;
    mainQueue_.async(options_.beat);
}

void CurlWorker::hurry() {
    if (std::exchange(hurries_, true))
        return;
    for (auto& exchange : active_)
        exchange->hurry(options_.patienceAtQuit);
}

void CurlWorker::finishOverdue() {
    auto now = CurlExchange::Clock::now();
    auto overdue = std::stable_partition(active_.begin(), active_.end(), [&](const auto& exchange) {
        return !exchange->isOverdue(now);
    });
    for (auto exchange = overdue; exchange != active_.end(); ++exchange) {
        curl_multi_remove_handle(multi_->handle, (*exchange)->handle());
        (*exchange)->finish(CURLE_OPERATION_TIMEDOUT);
    }
    active_.erase(overdue, active_.end());
}

void CurlWorker::cancelAll() {
    for (auto& exchange : std::exchange(active_, {})) {
        curl_multi_remove_handle(multi_->handle, exchange->handle());
        exchange->finish(CURLE_ABORTED_BY_CALLBACK);
    }
}

}  // namespace zelvo::platform
