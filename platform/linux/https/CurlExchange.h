#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/https/CurlUrlSession.h"

namespace zelvo::platform {

/// One request with its libcurl handle and what has come of it.
class CurlExchange {
  public:
    using Clock = std::chrono::steady_clock;

    CurlExchange(UrlRequest request, ExchangeFinished finished,
                 std::chrono::milliseconds connectWithin);
    CurlExchange(const CurlExchange&) = delete;
    CurlExchange& operator=(const CurlExchange&) = delete;

    /// Makes the handle; null when that fails.
    CURL* prepare(const CurlUrlSession::Options& options);
    /// Has to be connected within that time from now on, and answered within the same again.
    void hurry(std::chrono::milliseconds patience);
    /// To be asked often, as it also sees that the connection has come about.
    bool isOverdue(Clock::time_point now);
    /// Takes an address that the peer's name once had, however old the knowledge is.
    void trustOldAddresses();
    /// It gets one of its own.
    void useNoOldConnection();
    /// The last value of a header of the reply; empty without one.
    std::string replyHeader(const char* name) const;
    /// Hands the outcome over. Once only.
    void finish(CURLcode code);

    CURL* handle() const { return handle_.get(); }

  private:
    struct FreeHandle {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    struct FreeList {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    static std::size_t receive(char* bytes, std::size_t size, std::size_t count, void* self);
    void setUpConnection(const CurlUrlSession::Options& options);
    void setUpRequest();
    void addHeader(const std::string& line);
    bool goesToLoopback() const;
    bool has(CURLINFO moment) const;
    ExchangeTrouble troubleOf(CURLcode code) const;
    ExchangeTrouble certificateTrouble() const;

    UrlRequest request_;
    ExchangeFinished finished_;
    std::chrono::milliseconds connectWithin_;
    std::chrono::milliseconds patience_{0};
    Clock::time_point deadline_ = Clock::time_point::max();
    bool wasConnected_ = false;
    std::size_t bodyLimit_ = 0;
    bool bodyIsTooLarge_ = false;
    std::vector<std::byte> body_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    std::unique_ptr<curl_slist, FreeList> headers_;
    // Last, as cleaning it up may still use what is above.
    std::unique_ptr<CURL, FreeHandle> handle_;
};

}  // namespace zelvo::platform
