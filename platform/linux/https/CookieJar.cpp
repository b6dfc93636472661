#include "platform/linux/https/CookieJar.h"

#include <sstream>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/files/FileReplacement.h"

namespace zelvo::platform {

namespace {

/// libcurl itself keeps 50 for a host, of 4 KiB each.
constexpr std::size_t LongestJar = std::size_t{1} << 18;

}  // namespace

CookieJar::CookieJar(std::string file)
    : file_(std::move(file)), share_(curl_share_init()), reader_(curl_easy_init()) {
    // Everything that uses it is on one thread, so there is nothing to lock.
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    lend(reader_.get());
    if (file_.empty())
        return;
    std::istringstream lines(readTextFile(file_, LongestJar).value_or(""));
    for (std::string line; std::getline(lines, line);)
        curl_easy_setopt(reader_.get(), CURLOPT_COOKIELIST, line.c_str());
    kept_ = text();
}

void CookieJar::lend(CURL* handle) {
    curl_easy_setopt(handle, CURLOPT_SHARE, share_.get());
    // Which has a handle look at cookies at all.
    curl_easy_setopt(handle, CURLOPT_COOKIEFILE, "");
}

std::string CookieJar::text() const {
    curl_slist* cookies = nullptr;
    curl_easy_getinfo(reader_.get(), CURLINFO_COOKIELIST, &cookies);
    std::string text;
    for (const auto* cookie = cookies; cookie; cookie = cookie->next)
        text.append(cookie->data).append("\n");
    curl_slist_free_all(cookies);
    return text;
}

std::string CookieJar::keep() {
    auto now = text();
    if (file_.empty() || now == kept_)
        return "";
    auto error = replaceFile(file_, now);
    if (error.empty())
        kept_ = std::move(now);
    return error;
}

}  // namespace zelvo::platform
