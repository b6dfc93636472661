#include "platform/linux/https/CurlExchange.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <utility>

#include "platform/linux/base/Debug.h"

namespace zelvo::platform {

namespace {

std::string lowerCase(std::string text) {
    for (auto& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

CurlExchange::CurlExchange(UrlRequest request, std::function<void(UrlResult)> finished)
    : request_(std::move(request)), finished_(std::move(finished)) {}

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
    auto total = std::chrono::milliseconds(request_.timeout).count();
    curl_easy_setopt(handle(), CURLOPT_URL, request_.url.c_str());
    curl_easy_setopt(handle(), CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle(), CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle(), CURLOPT_TIMEOUT_MS, static_cast<long>(total));
    curl_easy_setopt(handle(), CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(options.connectTimeout.count()));
    deliveryTimeout_ = static_cast<unsigned>(options.deliveryTimeout.count());
    curl_easy_setopt(handle(), CURLOPT_SOCKOPTFUNCTION, &CurlExchange::setUpSocket);
    curl_easy_setopt(handle(), CURLOPT_SOCKOPTDATA, this);
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

int CurlExchange::setUpSocket(void* self, curl_socket_t socket, curlsocktype) {
    const auto& timeout = static_cast<CurlExchange*>(self)->deliveryTimeout_;
    // Without it the connection merely lives longer.
    ::setsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &timeout, sizeof timeout);
    return CURL_SOCKOPT_OK;
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
    if (code == CURLE_OK)
        return finished({std::move(body_), std::nullopt});
    std::string text = bodyIsTooLarge_         ? "The reply is larger than allowed"
                       : errorText_[0] != '\0' ? errorText_.data()
                                               : curl_easy_strerror(code);
    if (bodyIsTooLarge_)
        code = CURLE_FILESIZE_EXCEEDED;
    finished({std::nullopt, Error{UrlErrorDomain, static_cast<std::int64_t>(code), text}});
}

}  // namespace zelvo::platform
