#include "platform/linux/https/CurlExchange.h"

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <utility>

#include "platform/linux/base/Debug.h"

namespace zelvo::platform {

namespace {

/// In seconds.
constexpr long LongestRest = 3;

std::string lowerCase(std::string text) {
    for (auto& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

CurlExchange::CurlExchange(UrlRequest request, ExchangeFinished finished,
                           std::chrono::milliseconds connectWithin)
    : request_(std::move(request)),
      finished_(std::move(finished)),
      connectWithin_(std::min(connectWithin, std::chrono::milliseconds(request_.timeout))) {}

CURL* CurlExchange::prepare(const CurlUrlSession::Options& options) {
    handle_.reset(curl_easy_init());
    if (!handle_)
        return nullptr;
    bodyLimit_ = options.bodyLimit;
    curl_easy_setopt(handle(), CURLOPT_PRIVATE, this);
    curl_easy_setopt(handle(), CURLOPT_ERRORBUFFER, errorText_.data());
    curl_easy_setopt(handle(), CURLOPT_WRITEFUNCTION, &CurlExchange::receive);
    curl_easy_setopt(handle(), CURLOPT_WRITEDATA, this);
    setUpConnection(options);
    setUpRequest();
    return handle();
}

void CurlExchange::setUpConnection(const CurlUrlSession::Options& options) {
    auto total = static_cast<long>(std::chrono::milliseconds(request_.timeout).count());
    curl_easy_setopt(handle(), CURLOPT_URL, request_.url.c_str());
    curl_easy_setopt(handle(), CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle(), CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle(), CURLOPT_TIMEOUT_MS, total);
    // libcurl divides it among the addresses of a name, the unreachable ones included.
    curl_easy_setopt(handle(), CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(connectWithin_.count()));
    // A connection that has rested for longer may have lost its network meanwhile, and what is
    // sent into it waits in vain.
    curl_easy_setopt(handle(), CURLOPT_MAXAGE_CONN, LongestRest);
    curl_easy_setopt(handle(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle(), CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle(), CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(handle(), CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!options.certificateFile.empty()) {
        curl_easy_setopt(handle(), CURLOPT_CAINFO, options.certificateFile.c_str());
        curl_easy_setopt(handle(), CURLOPT_CAPATH, nullptr);
    }
    if (goesToLoopback())
        curl_easy_setopt(handle(), CURLOPT_PROXY, "");
#if LIBCURL_VERSION_NUM >= 0x075700
    // Giving up on a name server that does not answer must not wait for it.
    curl_easy_setopt(handle(), CURLOPT_QUICK_EXIT, 1L);
#endif
}

void CurlExchange::hurry(std::chrono::milliseconds patience) {
    patience_ = patience;
    deadline_ = Clock::now() + patience;
}

bool CurlExchange::isOverdue(Clock::time_point now) {
    if (!wasConnected_ && has(CURLINFO_PRETRANSFER_TIME_T)) {
        wasConnected_ = true;
        if (deadline_ != Clock::time_point::max())
            deadline_ = now + patience_;
    }
    return now >= deadline_;
}

void CurlExchange::trustOldAddresses() {
    curl_easy_setopt(handle(), CURLOPT_DNS_CACHE_TIMEOUT, -1L);
}

void CurlExchange::useNoOldConnection() {
    curl_easy_setopt(handle(), CURLOPT_FRESH_CONNECT, 1L);
}

bool CurlExchange::has(CURLINFO moment) const {
    curl_off_t microseconds = 0;
    return curl_easy_getinfo(handle(), moment, &microseconds) == CURLE_OK && microseconds > 0;
}

void CurlExchange::setUpRequest() {
    bool hasContentType = false;
    for (const auto& [name, value] : request_.headers) {
        addHeader(value.empty() ? name + ";" : name + ": " + value);
        hasContentType = hasContentType || lowerCase(name) == "content-type";
    }
    curl_easy_setopt(handle(), CURLOPT_USERAGENT, "zelvo");
    if (request_.method == "POST" || !request_.body.empty()) {
        curl_easy_setopt(handle(), CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request_.body.size()));
        curl_easy_setopt(
            handle(), CURLOPT_POSTFIELDS,
            request_.body.empty() ? "" : reinterpret_cast<const char*>(request_.body.data()));
        // libcurl would name a type of its own, and wait for the peer to ask for the body.
        if (!hasContentType)
            addHeader("Content-Type:");
        addHeader("Expect:");
    }
    if (request_.method != "GET" && request_.method != "POST")
        curl_easy_setopt(handle(), CURLOPT_CUSTOMREQUEST, request_.method.c_str());
    curl_easy_setopt(handle(), CURLOPT_HTTPHEADER, headers_.get());
}

void CurlExchange::addHeader(const std::string& line) {
    if (auto* longer = curl_slist_append(headers_.get(), line.c_str())) {
        (void)headers_.release();
        headers_.reset(longer);
    }
}

bool CurlExchange::goesToLoopback() const {
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parts(curl_url(), &curl_url_cleanup);
    char* host = nullptr;
    if (!parts || curl_url_set(parts.get(), CURLUPART_URL, request_.url.c_str(), 0) != CURLUE_OK ||
        curl_url_get(parts.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK)
        return false;
    auto name = lowerCase(host);
    curl_free(host);
    return name == "localhost" || name.ends_with(".localhost") || name.starts_with("127.") ||
           name == "[::1]";
}

std::size_t CurlExchange::receive(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<CurlExchange*>(self);
    auto length = size * count;
    if (length > exchange.bodyLimit_ - exchange.body_.size()) {
        exchange.bodyIsTooLarge_ = true;
        return CURL_WRITEFUNC_ERROR;
    }
    const auto* first = reinterpret_cast<const std::byte*>(bytes);
    exchange.body_.insert(exchange.body_.end(), first, first + length);
    return length;
}

std::string CurlExchange::replyHeader(const char* name) const {
    curl_header* header = nullptr;
    if (curl_easy_header(handle(), name, 0, CURLH_HEADER, -1, &header) != CURLHE_OK)
        return {};
    return header->value;
}

ExchangeTrouble CurlExchange::certificateTrouble() const {
    long verified = 0;
    curl_easy_getinfo(handle(), CURLINFO_SSL_VERIFYRESULT, &verified);
    switch (verified) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return ExchangeTrouble::CertificateExpired;
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return ExchangeTrouble::CertificateNotYetValid;
        // libcurl compares the name itself, and before it asks for the rest.
        case X509_V_OK:
        case X509_V_ERR_UNSPECIFIED:
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return ExchangeTrouble::CertificateOfAnother;
        default:
            return ExchangeTrouble::CertificateUntrusted;
    }
}

ExchangeTrouble CurlExchange::troubleOf(CURLcode code) const {
    switch (code) {
        case CURLE_OK:
        case CURLE_ABORTED_BY_CALLBACK:
        case CURLE_FAILED_INIT:
            return ExchangeTrouble::None;
        // Without a service the requests have no origin.
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_COULDNT_RESOLVE_HOST:
            return ExchangeTrouble::NoName;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_CONNECT:
            return ExchangeTrouble::NoConnection;
        case CURLE_PEER_FAILED_VERIFICATION:
            return certificateTrouble();
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CIPHER:
            return ExchangeTrouble::NotSecure;
        case CURLE_OPERATION_TIMEDOUT:
            if (has(CURLINFO_PRETRANSFER_TIME_T))
                return ExchangeTrouble::NoAnswer;
            return has(CURLINFO_NAMELOOKUP_TIME_T) ? ExchangeTrouble::NoConnection
                                                   : ExchangeTrouble::NoName;
        default:
            return ExchangeTrouble::NoAnswer;
    }
}

void CurlExchange::finish(CURLcode code) {
    auto finished = std::exchange(finished_, nullptr);
    if (!finished)
        return;
    curl_off_t took = 0;
    if (handle())
        curl_easy_getinfo(handle(), CURLINFO_TOTAL_TIME_T, &took);
    debug("https", request_.method + " " + request_.url + " ended after " +
                       std::to_string(took / 1000) + " ms with " + std::to_string(body_.size()) +
                       " bytes: " + curl_easy_strerror(code));
    ExchangeReport report;
    if (handle()) {
        report.trouble = troubleOf(code);
        curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &report.httpStatus);
    }
    if (code == CURLE_OK)
        return finished({std::move(body_), std::nullopt}, report);
    std::string text = bodyIsTooLarge_         ? "The reply is larger than allowed"
                       : errorText_[0] != '\0' ? errorText_.data()
                                               : curl_easy_strerror(code);
    if (bodyIsTooLarge_)
        code = CURLE_FILESIZE_EXCEEDED;
    finished({std::nullopt, Error{UrlErrorDomain, static_cast<std::int64_t>(code), text}}, report);
}

}  // namespace zelvo::platform
