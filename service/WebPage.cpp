#include "service/WebPage.h"

#include "platform/linux/base/FileReading.h"
#include "service/Names.h"

namespace zelvo::service {

std::optional<WebPage> WebPage::read(const std::string& file,
                                     const std::map<std::string, std::string>& relays,
                                     std::string& error) {
    WebPage page;
    for (const auto& [path, bytes] :
         {std::pair(file, &page.text_), std::pair(file + ".gz", &page.compressed_)}) {
        auto text = platform::readTextFile(path);
        if (!text) {
            error = path + ": cannot be read";
            return std::nullopt;
        }
        *bytes = std::move(*text);
    }
    // Of what the page itself cannot say, or not as narrowly; the rest of the policy is in it.
    page.policy_ = "frame-ancestors 'none'; connect-src 'self'";
    for (const auto& [address, name] : relays)
        page.policy_ += " wss://" + name;
    return page;
}

bool WebPage::isAt(std::string_view path) {
    return path.starts_with('/') && bytesOfName(path.substr(1));
}

serving::HttpResponse WebPage::answer(const serving::HttpRequest& request) const {
    const bool compressed =
        request.header("Accept-Encoding").find("gzip") != std::string_view::npos;
    serving::HttpResponse response;
    response.headers = {{"Content-Type", "text/html; charset=utf-8"},
                        // The link's address is not to stay on the disk of whoever was sent it.
                        {"Cache-Control", "no-store"},
                        {"Content-Security-Policy", policy_},
                        {"Referrer-Policy", "no-referrer"},
                        {"X-Content-Type-Options", "nosniff"},
                        {"Cross-Origin-Opener-Policy", "same-origin"},
                        {"Permissions-Policy", "camera=(), microphone=(), geolocation=()"},
                        {"Vary", "Accept-Encoding"}};
    if (compressed)
        response.headers.emplace_back("Content-Encoding", "gzip");
    response.body = compressed ? compressed_ : text_;
    return response;
}

}  // namespace zelvo::service
