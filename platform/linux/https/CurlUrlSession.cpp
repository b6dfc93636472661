#include "platform/linux/https/CurlUrlSession.h"

#include <curl/curl.h>
#include <openssl/crypto.h>

#include <future>
#include <utility>

#include "platform/linux/base/ThreadQueue.h"
#include "platform/linux/https/CurlWorker.h"

namespace zelvo::platform {

CurlUrlSession::CurlUrlSession(MainQueue& mainQueue, Options options)
    : mainQueue_(mainQueue),
      completions_(std::make_shared<Completions>()),
      worker_(std::make_unique<CurlWorker>(mainQueue, std::move(options))) {
    // Qt exits where it stands when the display goes, while threads seal and ask: what OpenSSL has
    // stays there until the process is gone. This is the first who needs it.
    ::OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

CurlUrlSession::~CurlUrlSession() = default;

void CurlUrlSession::dataTask(UrlRequest request, std::function<void(UrlResult)> done) {
    exchange(std::move(request),
             [done = std::move(done)](UrlResult result, const auto&) { done(std::move(result)); });
}

void CurlUrlSession::exchange(UrlRequest request, ExchangeFinished done,
                              std::chrono::milliseconds connectWithin) {
    if (!mainQueue_.isOpen())
        return;
    auto id = next_++;
    completions_->emplace(id, std::move(done));
    std::weak_ptr weak = completions_;
    auto finished = [&queue = mainQueue_, weak, id](UrlResult result,
                                                    const ExchangeReport& report) {
        auto shared = std::make_shared<UrlResult>(std::move(result));
        queue.async([weak, id, shared, report] {
            auto completions = weak.lock();
            if (!completions)
                return;
            if (auto entry = completions->extract(id))
                entry.mapped()(std::move(*shared), report);
        });
    };
    worker_->submit(std::move(request), std::move(finished), connectWithin);
}

UrlResult CurlUrlSession::sendSynchronously(const UrlRequest& request) {
    auto answer = std::make_shared<std::promise<UrlResult>>();
    auto result = answer->get_future();
    worker_->submit(
        request, [answer](UrlResult value, const auto&) { answer->set_value(std::move(value)); },
        std::chrono::hours(1));
    return result.get();
}

std::unique_ptr<SerialQueue> CurlUrlSession::makeSerialQueue() {
    return std::make_unique<ThreadQueue>();
}

void CurlUrlSession::quitBegins() {
    worker_->quitBegins();
}

}  // namespace zelvo::platform
