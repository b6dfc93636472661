#include "platform/linux/tls/TlsDialer.h"

#include <curl/curl.h>
#include <sys/epoll.h>

#include <utility>

namespace zelvo::platform {

namespace {

bool isLoopback(const std::string& place) {
    return place.starts_with("127.") || place == "localhost" || place.starts_with("localhost:");
}

CURL* prepare(const std::string& place, const std::string& certificateFile,
              std::chrono::milliseconds within) {
    auto* handle = curl_easy_init();
    if (!handle)
        return nullptr;
    curl_easy_setopt(handle, CURLOPT_URL, ("https://" + place + "/").c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_SSL_ENABLE_ALPN, 0L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(within.count()));
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!certificateFile.empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, certificateFile.c_str());
        curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
    }
    if (isLoopback(place))
        curl_easy_setopt(handle, CURLOPT_PROXY, "");
#if LIBCURL_VERSION_NUM >= 0x075700
    // Giving up on a name server that does not answer must not wait for it.
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
#endif
    return handle;
}

}  // namespace

TlsDialer::TlsDialer(EventLoop& loop, std::string certificateFile)
    : loop_(loop), certificateFile_(std::move(certificateFile)), multi_(curl_multi_init()) {
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &TlsDialer::watchSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &TlsDialer::setTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

TlsDialer::~TlsDialer() {
    for (const auto& [handle, done] : dialling_) {
        curl_multi_remove_handle(multi_, handle);
        curl_easy_cleanup(handle);
    }
    curl_multi_cleanup(multi_);
}

void TlsDialer::dial(const std::string& place, std::chrono::milliseconds within, Done done) {
    auto* handle = prepare(place, certificateFile_, within);
    if (!handle || curl_multi_add_handle(multi_, handle) != CURLM_OK) {
        curl_easy_cleanup(handle);
        return done({nullptr, CURLE_FAILED_INIT});
    }
    dialling_[handle] = std::move(done);
}

int TlsDialer::watchSocket(void*, int socket, int what, void* self, void*) {
    auto& dialer = *static_cast<TlsDialer*>(self);
    auto& watch = dialer.watches_[socket];
    if (what == CURL_POLL_REMOVE) {
        watch->setEvents(0);
        dialer.goneWatches_.push_back(std::move(watch));
        dialer.watches_.erase(socket);
        return 0;
    }
    if (!watch)
        watch = std::make_unique<EventLoop::Watch>(
            dialer.loop_, socket, [&dialer, socket](std::uint32_t events) {
                const int seen = (events & EPOLLIN ? CURL_CSELECT_IN : 0) |
                                 (events & EPOLLOUT ? CURL_CSELECT_OUT : 0) |
                                 (events & (EPOLLERR | EPOLLHUP) ? CURL_CSELECT_ERR : 0);
                int running = 0;
                curl_multi_socket_action(dialer.multi_, socket, seen, &running);
            });
    watch->setEvents((what & CURL_POLL_IN ? static_cast<std::uint32_t>(EPOLLIN) : 0U) |
                     (what & CURL_POLL_OUT ? static_cast<std::uint32_t>(EPOLLOUT) : 0U));
    return 0;
}

int TlsDialer::setTimer(void*, long milliseconds, void* self) {
    static_cast<TlsDialer*>(self)->wakeAt_ =
        milliseconds < 0 ? Time::max()
                         : EventLoop::Clock::now() + std::chrono::milliseconds(milliseconds);
    return 0;
}

void TlsDialer::tick(Time now) {
    goneWatches_.clear();
    if (now >= wakeAt_) {
        wakeAt_ = Time::max();
        int running = 0;
        curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
    }
    finish();
}

void TlsDialer::finish() {
    int left = 0;
    while (const auto* message = curl_multi_info_read(multi_, &left)) {
        auto* const handle = message->easy_handle;
        const auto code = message->data.result;
        auto entry = dialling_.extract(handle);
        if (message->msg != CURLMSG_DONE || !entry)
            continue;
        if (code == CURLE_OK) {
            entry.mapped()({std::make_unique<TlsConnection>(multi_, handle)});
            continue;
        }
        long error = 0;
        curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &error);
        curl_multi_remove_handle(multi_, handle);
        curl_easy_cleanup(handle);
        entry.mapped()({nullptr, code, static_cast<int>(error)});
    }
}

}  // namespace zelvo::platform
