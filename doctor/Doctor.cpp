#include "doctor/Doctor.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "host/KVSystemInformation.h"
#include "platform/Log.h"
#include "platform/linux/https/ServiceExplanation.h"
#include "platform/linux/machine/NetlinkSocketTable.h"
#include "platform/linux/machine/NssServicesDatabase.h"
#include "platform/linux/nat/RouterExplanation.h"
#include "platform/linux/nat/RouterInquiry.h"
#include "platform/linux/relay/RelayOffer.h"
#include "platform/qt/core/Display.h"

namespace zelvo::doctor {

using namespace platform;
using Standing = Finding::Standing;

namespace {

using namespace std::chrono_literals;

/// After which Zelvo looks for a relay.
constexpr auto RouterPatience = 4s;
constexpr auto PortalPatience = 3s;
constexpr auto ConnectPatience = 10s;

/// What is found is for the person, and not for the log.
class NoLog final : public Log {
  public:
    void line(std::string_view) override {}
    void standardError(std::string_view) override {}
};

bool isSet(const char* variable) {
    const char* value = std::getenv(variable);
    return value && *value;
}

bool isWayland() {
    return isSet("WAYLAND_DISPLAY");
}

/// None where no portal answers that takes input for a screen.
std::optional<unsigned> portalVersion() {
    auto question = QDBusMessage::createMethodCall("org.freedesktop.portal.Desktop",
                                                   "/org/freedesktop/portal/desktop",
                                                   "org.freedesktop.DBus.Properties", "Get");
    question << "org.freedesktop.portal.RemoteDesktop"
             << "version";
    const auto answer = QDBusConnection::sessionBus().call(
        question, QDBus::Block,
        static_cast<int>(std::chrono::milliseconds(PortalPatience).count()));
    const auto arguments = answer.arguments();
    if (answer.type() != QDBusMessage::ReplyMessage || arguments.isEmpty())
        return std::nullopt;
    bool isNumber = false;
    const auto version = arguments.first().value<QDBusVariant>().variant().toUInt(&isNumber);
    return isNumber ? std::optional(version) : std::nullopt;
}

std::string joined(const std::vector<std::string>& words) {
    std::string all;
    for (const auto& word : words)
        all += (all.empty() ? "" : ", ") + word;
    return all;
}

std::int32_t errorOf(const RouterFacts& facts) {
    if (facts.router == 0)
        return NatErrorNoRouter;
    switch (facts.failure) {
        case NatFailure::Disconnected:
            return NatErrorTransient;
        case NatFailure::Refused:
            return NatErrorPortMappingDisabled;
        case NatFailure::Silent:
        case NatFailure::Unsupported:
            break;
    }
    return NatErrorTimeout;
}

UrlRequest serviceQuestion(const std::string& origin) {
    UrlRequest request;
    request.url = origin + "/app/4.8.1/sharing/get.php";
    request.cachePolicy = CachePolicy::ReloadIgnoringLocalCacheData;
    request.timeout = 15s;
    request.method = "POST";
    request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
    // A link that nobody has.
    const auto form = "link=" + std::string(32, '0');
    std::ranges::transform(form, std::back_inserter(request.body),
                           [](char c) { return static_cast<std::byte>(c); });
    return request;
}

}  // namespace

Doctor::Doctor(MainQueue& queue, Environment environment, bool inEnglish)
    : environment_(std::move(environment)),
      propertyLists_(environment_.systemRoot),
      bundle_({.executableFolder = "",
               .languages = inEnglish ? std::vector<std::string>() : environment_.languages,
               .dataHome = environment_.dataHome},
              propertyLists_),
      session_(queue, {.certificateFile = environment_.certificateFile,
                       .seenFrom = [this](const auto& address) { seenFrom_ = address; }}) {}

void Doctor::examine(Done done) {
    done_ = std::move(done);
    lookAtSession();
    lookAtPortal();
    lookAtServer();
    lookAtRouter();
    lookAtClock();
    lookAtCertificates();
    askService();
}

void Doctor::add(const std::string& key, Standing standing, const char* subject,
                 const std::string& value) {
    auto text = bundle_.localizedString(key);
    if (const auto at = text.find("%@"); at != text.npos)
        text.replace(at, 2, value);
    findings_.push_back({subject, standing, std::move(text)});
}

void Doctor::lookAtSession() {
    if (isWayland())
        add("The session is Wayland: %@.", Standing::Works, "session",
            environment_.desktop.empty() ? "?" : environment_.desktop);
    else if (isSet("DISPLAY") && !x11IsThere())
        add("No X11 display answers at %@.", Standing::Fails, "session", std::getenv("DISPLAY"));
    else if (isSet("DISPLAY"))
        add("The session is X11. The desktop asks nothing of its own.", Standing::Works, "session");
    else
        add("There is no display, and so no screen to show.", Standing::Fails, "session");
}

void Doctor::lookAtPortal() {
    if (!isWayland())
        return;
    if (const auto version = portalVersion())
        add("The desktop’s portal shows the screen and takes input (version %@).", Standing::Works,
            "portal", std::to_string(*version));
    else
        add("No portal of the desktop shows the screen and takes input. Without one only the "
            "screens of sway and its kin can be shown.",
            Standing::Limits, "portal");
}

void Doctor::lookAtServer() {
    namespace fs = std::filesystem;
    const fs::path resources = bundle_.resourcePath();
    // Beside the resources in a build folder; installed, where the tools look for it.
    // The resources are a link there, which is not to be followed back.
    const auto isProgram = [&](const char* place) {
        return ::access((resources / place).lexically_normal().c_str(), X_OK) == 0;
    };
    if (isProgram("../screensharingd") || isProgram("../../../libexec/zelvo/screensharingd"))
        add("The screen server is installed.", Standing::Works, "server");
    else
        add("The screen server (screensharingd) is not where it belongs. Install Zelvo anew.",
            Standing::Fails, "server");
    NoLog log;
    if (KVSystemInformation::isScreenSharingRunning(NetlinkSocketTable(), NssServicesDatabase(),
                                                    log))
        add("Something listens on the port of Screen Sharing already: Zelvo itself, or a program "
            "that stands in its way.",
            Standing::Limits, "port");
}

void Doctor::lookAtRouter() {
    const auto facts = inquireOfRouter(environment_.router, RouterPatience);
    if (!facts.protocols.empty()) {
        add("The router opens ports (%@).", Standing::Works, "router",
            addressText(facts.router) + ": " + joined(facts.protocols));
        routerMaps_ = true;
        externalAddress_ = facts.externalAddress;
        return;
    }
    NoLog log;
    RouterExplanation explanation(bundle_, log);
    NatPortMappingReply reply;
    reply.errorCode = errorOf(facts);
    explanation.mappingReplied(reply);
    // Without one a relay of the service is the way in.
    findings_.push_back({"router", facts.router == 0 ? Standing::Fails : Standing::Limits,
                         explanation.text().value()});
}

void Doctor::lookAtClock() {
    const auto clock = ServiceExplanation::readSystemClock();
    if (clock.now < clock.past)
        add("This computer’s clock is wrong: it says %@.", Standing::Fails, "clock", clock.text());
    else if (clock.isKept)
        add("A time server keeps this computer’s clock.", Standing::Works, "clock");
    else
        add("No time server keeps this computer’s clock. It says %@.", Standing::Limits, "clock",
            clock.text());
}

void Doctor::lookAtCertificates() {
    const auto& file = environment_.certificateFile;
    if (file.empty())
        add("The system says whose certificates are trusted.", Standing::Works, "certificates");
    else if (::access(file.c_str(), R_OK) == 0)
        add("A file of your own says whose certificates are trusted: %@.", Standing::Limits,
            "certificates", file);
    else
        add("The file that says whose certificates are trusted cannot be read: %@.",
            Standing::Fails, "certificates", file);
}

void Doctor::askService() {
    session_.exchange(
        serviceQuestion(environment_.serviceOrigin),
        [this](const UrlResult& result, const ExchangeReport& report) {
            serviceAnswered(result, report);
        },
        ConnectPatience);
}

void Doctor::serviceAnswered(const UrlResult& result, const ExchangeReport& report) {
    const auto reply = result.data ? propertyLists_.parse(*result.data).value : std::nullopt;
    if (reply && reply->find("StatusCode")) {
        add("The sharing service answers: %@.", Standing::Works, "service",
            environment_.serviceOrigin);
        lookBehindRouter();
        return askForRelay();
    }
    ServiceExplanation explanation(bundle_);
    explanation.creationBegan();
    explanation.creationEnded(false, report.trouble);
    findings_.push_back({"service", Standing::Fails, explanation.creation().value()});
    lookBehindRouter();
    done_(findings_);
}

void Doctor::lookBehindRouter() {
    if (!routerMaps_)
        return;
    if (externalAddress_ == 0)
        return add("The router does not say which address it has on the internet.",
                   Standing::Unknown, "second-router");
    NoLog log;
    RouterExplanation explanation(bundle_, log);
    NatPortMappingReply reply;
    reply.externalAddress = htonl(externalAddress_);
    reply.externalPort = 1;
    explanation.mappingReplied(reply);
    explanation.seenFrom(seenFrom_);
    if (explanation.text().value().empty())
        add("No second router was noticed. The router’s own address is %@.", Standing::Works,
            "second-router", addressText(externalAddress_));
    else
        findings_.push_back({"second-router", Standing::Limits, explanation.text().value()});
}

void Doctor::askForRelay() {
    session_.exchange(
        RelayOffer::request(environment_.serviceOrigin, {}),
        [this](const UrlResult& result, const ExchangeReport&) {
            const auto offer = result.data
                                   ? RelayOffer::of(propertyLists_.parse(*result.data).value)
                                   : std::nullopt;
            if (offer)
                return askRelay(offer->relay);
            add("The sharing service has no relay, for computers that nobody can connect to.",
                Standing::Limits, "relay");
            done_(findings_);
        },
        ConnectPatience);
}

void Doctor::askRelay(const std::string& place) {
    UrlRequest request;
    request.url = "https://" + place + "/";
    request.timeout = 15s;
    session_.exchange(
        std::move(request),
        [this, place](const UrlResult&, const ExchangeReport& report) {
            // It has nothing to show by HTTP, and says so.
            if (report.httpStatus != 0)
                add("A relay is there for those who cannot be reached otherwise: %@.",
                    Standing::Works, "relay", place);
            else
                add("The relay does not answer: %@.", Standing::Limits, "relay", place);
            done_(findings_);
        },
        ConnectPatience);
}

}  // namespace zelvo::doctor
