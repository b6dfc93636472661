#include "opener/facts/SharingService.h"

#include <curl/curl.h>

#include <span>
#include <utility>

#include "opener/facts/FactsReply.h"
#include "opener/facts/Place.h"

namespace zelvo::opener {

namespace {

using namespace std::chrono_literals;
using platform::ExchangeTrouble;

// Somebody looks at the window meanwhile.
constexpr auto Patience = 20s;
constexpr auto ConnectWithin = 10s;

NoFacts noFacts(const platform::UrlResult& result, ExchangeTrouble trouble) {
    if (result.error && result.error->code == CURLE_FILESIZE_EXCEEDED)
        return NoFacts::Nonsense;
    switch (trouble) {
        case ExchangeTrouble::NoName:
            return NoFacts::NoName;
        case ExchangeTrouble::NoConnection:
            return NoFacts::NoConnection;
        case ExchangeTrouble::CertificateExpired:
            return NoFacts::CertificateExpired;
        case ExchangeTrouble::CertificateNotYetValid:
            return NoFacts::CertificateNotYetValid;
        case ExchangeTrouble::CertificateUntrusted:
            return NoFacts::CertificateUntrusted;
        case ExchangeTrouble::CertificateOfAnother:
            return NoFacts::CertificateOfAnother;
        case ExchangeTrouble::NotSecure:
            return NoFacts::NotSecure;
        case ExchangeTrouble::None:
        case ExchangeTrouble::NoAnswer:
            break;
    }
    return NoFacts::NoAnswer;
}

}  // namespace

SharingService::SharingService(platform::MainQueue& mainQueue, std::string origin,
                               std::string certificateFile)
    : origin_(std::move(origin)),
      maySendAnywhere_(isOnLoopback(origin_)),
      session_(mainQueue, {.certificateFile = std::move(certificateFile)}) {}

void SharingService::ask(const std::string& identifier, std::function<void(FactsAnswer)> done) {
    platform::UrlRequest request;
    request.url = origin_ + "/app/4.8.1/sharing/get.php";
    request.cachePolicy = platform::CachePolicy::ReloadIgnoringLocalCacheData;
    request.timeout = Patience;
    request.method = "POST";
    request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
    // An identifier has no character that a form would write differently.
    const auto form = std::as_bytes(std::span(identifier));
    for (const char c : std::string_view("link="))
        request.body.push_back(static_cast<std::byte>(c));
    request.body.insert(request.body.end(), form.begin(), form.end());
    session_.exchange(
        std::move(request),
        [done = std::move(done), maySendAnywhere = maySendAnywhere_](
            const platform::UrlResult& result, const auto& report) {
            if (!result.data)
                return done(noFacts(result, report.trouble));
            auto answer = readFacts(*result.data);
            const auto* facts = std::get_if<HostFacts>(&answer);
            // Through a relay nobody goes to the address.
            const bool isAllowed = maySendAnywhere || !facts || !facts->relay.empty() ||
                                   mayBeSentTo(facts->address, facts->port);
            done(isAllowed ? std::move(answer) : NoFacts::Inside);
        },
        ConnectWithin);
}

}  // namespace zelvo::opener
