#include "platform/linux/LinuxPlatform.h"

#include <arpa/inet.h>
#include <algorithm>
#include <csignal>
#include <span>

#include "platform/Observable.h"
#include "platform/linux/LinuxExplanations.h"
#include "platform/linux/base/Environment.h"
#include "platform/linux/base/SystemLog.h"
#include "platform/linux/bundle/InstalledBundle.h"
#include "platform/linux/desktop/DesktopSettingsMirror.h"
#include "platform/linux/https/ServiceExplanation.h"
#include "platform/linux/https/SharingSession.h"
#include "platform/linux/link_key/LinkKeySession.h"
#include "platform/linux/link_key/LinkTroubles.h"
#include "platform/linux/link_key/RegisteredLink.h"
#include "platform/linux/machine/InetAddressParser.h"
#include "platform/linux/machine/NetlinkSocketTable.h"
#include "platform/linux/machine/NssServicesDatabase.h"
#include "platform/linux/machine/OpenSslMessageDigest.h"
#include "platform/linux/machine/OsReleaseProcessInfo.h"
#include "platform/linux/machine/ProcProcessTable.h"
#include "platform/linux/machine/SysfsHardwareRegistry.h"
#include "platform/linux/machine/SystemRandom.h"
#include "platform/linux/names/HostnamedDynamicStore.h"
#include "platform/linux/nat/ExternalAddress.h"
#include "platform/linux/nat/RouterExplanation.h"
#include "platform/linux/nat/RouterPortMapping.h"
#include "platform/linux/privileges/SystemAuthorization.h"
#include "platform/linux/property_lists/FileUserDefaults.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "platform/linux/property_lists/UserPreferences.h"
#include "platform/linux/property_lists/XmlPlistWriter.h"
#include "platform/linux/relay/ReachCheck.h"
#include "platform/linux/relay/RelayExplanation.h"
#include "platform/linux/relay/RelayPortMapping.h"
#include "platform/linux/relay/RelaySettings.h"
#include "platform/linux/screen_sharing/AdmittedSockets.h"
#include "platform/linux/screen_sharing/ScreenServerLine.h"
#include "platform/linux/screen_sharing/ScreenSharingExplanation.h"
#include "platform/linux/screen_sharing/ScreenSharingSettings.h"

namespace zelvo::platform {

namespace {

constexpr std::string_view enableTool = "enable-screen-sharing-and-guess-access.tool";

std::string ownFolder(const std::string& base) {
    return base.empty() ? base : base + "/zelvo";
}

/// Whether those who have proven nothing are refused without a question; written as "YES".
constexpr std::string_view OnlyLinkHoldersKey = "onlyPeopleWithTheLink";
constexpr std::string_view KeptLinkKey = "permanentSharedLink";

std::optional<std::vector<std::byte>> bytesOf(const PropertyList::Dictionary& dictionary) {
    const auto xml = writeXmlPlist(dictionary);
    if (!xml)
        return std::nullopt;
    const auto bytes = std::as_bytes(std::span(xml->constData(), std::size_t(xml->size())));
    return std::vector<std::byte>(bytes.begin(), bytes.end());
}

/// As the screen server is told it; without an identifier where there is none.
gate::Link linkForGate(const sealing::ShareLink* link) {
    gate::Link told;
    if (link) {
        told.identifier = link->identifier;
        std::ranges::copy(link->key.bytes(), told.key.begin());
    }
    return told;
}

}  // namespace

struct LinuxPlatform::Services {
    explicit Services(MainQueue& queue) : mainQueue(queue), environment(Environment::ofProcess()) {}

    MainQueue& mainQueue;
    Environment environment;
    SystemLog log;

    HostnamedDynamicStore dynamicStore{mainQueue, log};
    SysfsHardwareRegistry hardware;
    NssServicesDatabase services;
    NetlinkSocketTable sockets;
    ProcProcessTable processes;
    OsReleaseProcessInfo processInfo;
    SystemRandom random;
    OpenSslMessageDigest digest;
    InetAddressParser addresses;

    PlistReader propertyLists{environment.systemRoot};
    FileUserDefaults userDefaults{ownFolder(environment.configHome), log,
                                  [this](std::string_view key, auto wanted, bool isDone) {
                                      if (key == KeptLinkKey)
                                          keptLinkIs(wanted, isDone);
                                  },
                                  std::string(KeptLinkKey)};
    UserPreferences preferences{userDefaults};
    InstalledBundle bundle{{.executableFolder = "",
                            .languages = environment.languages,
                            .dataHome = environment.dataHome},
                           propertyLists};
    DesktopSettingsMirror desktopSettings{{.desktop = environment.desktop,
                                           .display = environment.xDisplay,
                                           .configHome = environment.configHome},
                                          bundle,
                                          propertyLists,
                                          log};

    ScreenSharingExplanation screenSharing{mainQueue, bundle,
                                           environment.systemRoot + "/run/reason"};
    ScreenServerLine screenServer{log, ownFolder(environment.runtimeFolder)};
    Subscription abilities;
    Subscription onlyLinkHolders;
    Subscription insideChange;
    AdmittedSockets admittedSockets{
        sockets,
        services,
        {.areKnown = [this] { return screenServer.serverIsThere(); },
         .isInside = [this](const auto& peer) { return screenServer.isInside(peer); }}};
    ScreenSharingSettings settings{
        propertyLists,
        {.serverListens = [this] { return screenServer.serverListens(); },
         .asked = [this] { screenSharing.update(); },
         .believed = [this] { screenSharing.serverListens(); }}};
    RouterExplanation router{bundle, log};
    RelayExplanation relay{bundle};
    RelaySettings relaySettings{userDefaults, environment.serviceOrigin};
    ReachCheck reach{bundle, log, {.ask = [this](auto done) {
                         urlSession.askAgain([this, done](const auto& reply) {
                             done(propertyLists.parse(reply).value);
                         });
                     }}};
    Subscription reachChange = reach.text().subscribe(
        [this](const auto& text) { relaySettings.setIsBarred(!text.empty()); });
    ServiceExplanation service{bundle};
    LinkTroubles linkTroubles{bundle};
    LinuxExplanations explanations{{screenSharing.text(), screenSharing.limits(), router, relay,
                                    reach.text(), service.creation(), linkTroubles.text(),
                                    service.withdrawal()}};

    SharingSession urlSession{
        mainQueue,
        service,
        log,
        {.exchanges = {.certificateFile = environment.certificateFile,
                       .seenFrom = [this](const auto& address) { router.seenFrom(address); },
                       .cookiesAreLost =
                           [this](const auto& error) { linkTroubles.proofIsKept(error.empty()); }},
         .stateFolder = ownFolder(environment.stateHome),
         .registers =
             [this](const auto& reply) {
                 return registeredLink(propertyLists.parse(reply).value).has_value();
             },
         .disowns =
             [this](const auto& reply) {
                 constexpr int unknownLink = 5;
                 const auto parsed = propertyLists.parse(reply).value;
                 const auto* status = parsed ? parsed->find("StatusCode") : nullptr;
                 return status && status->integerReading() == unknownLink;
             },
         .inquired = [this] { reach.linkIsRegistered(); }}};
    LinkKeySession linkKeys{
        urlSession,
        propertyLists,
        {.write = bytesOf,
         .changed = [this](const auto* link) { linkChanged(link); },
         .registered = [this](bool hasKey) { linkTroubles.linkHasKey(hasKey); }}};
    RouterPortMapping routerMapping{
        mainQueue,
        log,
        {.router = environment.router,
         .stateFolder = ownFolder(environment.stateHome),
         .heard = [this](const auto& reply) { mappingReplied(reply); }}};
    RelayPortMapping natPortMapping{
        mainQueue,
        routerMapping,
        {.certificateFile = environment.certificateFile,
         .isPrivate = isBehindAnotherRouter,
         .use = [this] { return relaySettings.relayUse().value(); },
         .ask = [this](const auto& wanted, auto done) { askForRelay(wanted, std::move(done)); },
         .connect = [this](const auto& origin) { return screenServer.connectRelayed(origin); },
         .told = [this](const auto& way) { wayIs(way); }}};

    SystemAuthorization authorization{
        log, {.asSelf = environment.authorizesItself, .started = [this](std::string_view tool) {
                  if (tool == enableTool)
                      screenSharing.toolStarted();
              }}};

    void keptLinkIs(FileUserDefaults::Wanted wanted, bool isDone) {
        if (wanted == FileUserDefaults::Wanted::Stored)
            linkTroubles.linkIsStored(isDone);
        else
            linkTroubles.linkIsRemoved(isDone);
    }

    void mappingReplied(const std::optional<NatPortMappingReply>& reply) {
        // A new attempt: what the service said of the last one is over.
        if (!reply) {
            service.creationBegan();
            reach.forget();
        } else {
            reach.portIs(ntohs(reply->internalPort));
        }
        router.mappingReplied(reply);
    }

    void askForRelay(const std::string& wanted,
                     std::function<void(const std::optional<RelayOffer>&)> done) {
        urlSession.dataTask(RelayOffer::request(environment.serviceOrigin, wanted),
                            [this, done = std::move(done)](const UrlResult& result) {
                                done(result.data
                                         ? RelayOffer::of(propertyLists.parse(*result.data).value)
                                         : std::nullopt);
                            });
    }

    void wayIs(const RelayPortMapping::Way& way) {
        // What the router said does not concern people who come another way.
        if (!way.relay.empty()) {
            router.mappingReplied(std::nullopt);
            reach.forget();
        }
        relay.wayIs(way);
        relaySettings.wayIs(way);
    }

    void linkChanged(const sealing::ShareLink* link) {
        screenServer.setLink(linkForGate(link));
        // Who came without a proof came by the address that it published.
        if (!link)
            screenServer.disconnectEverybody();
    }

    void keepWhoMayAsk(bool onlyLinkHolders) {
        if (onlyLinkHolders)
            userDefaults.setString(OnlyLinkHoldersKey, "YES");
        else
            userDefaults.removeObject(OnlyLinkHoldersKey);
    }
};

LinuxPlatform::LinuxPlatform(MainQueue& mainQueue) {
    ::signal(SIGPIPE, SIG_IGN);
    services_ = std::make_unique<Services>(mainQueue);
    services_->screenServer.desktopAsks = [this] { services_->screenSharing.desktopAsks(); };
    services_->screenServer.desktopWithdraws = [this] {
        services_->screenSharing.desktopWithdraws();
    };
    services_->abilities = services_->screenServer.abilities().subscribe(
        [this](const auto& abilities) { services_->screenSharing.desktopLets(abilities); });
    services_->screenServer.setAdmitsOnlyLinkHolders(
        services_->userDefaults.boolForKey(OnlyLinkHoldersKey));
    services_->onlyLinkHolders = services_->screenServer.admitsOnlyLinkHolders().subscribe(
        [this](bool only) { services_->keepWhoMayAsk(only); });
    services_->insideChange =
        services_->screenServer.inside().subscribe([this](const auto& inside) {
            if (!inside.empty())
                services_->reach.forget();
        });
    for (const auto& complaint : services_->environment.complaints)
        services_->log.line(complaint);
}

LinuxPlatform::~LinuxPlatform() = default;

const Environment& LinuxPlatform::environment() const {
    return services_->environment;
}
SystemLog& LinuxPlatform::log() {
    return services_->log;
}

DynamicStore& LinuxPlatform::dynamicStore() {
    return services_->dynamicStore;
}
HardwareRegistry& LinuxPlatform::hardware() {
    return services_->hardware;
}
ServicesDatabase& LinuxPlatform::services() {
    return services_->services;
}
SocketTable& LinuxPlatform::sockets() {
    return services_->admittedSockets;
}
ProcessTable& LinuxPlatform::processes() {
    return services_->processes;
}
ProcessInfo& LinuxPlatform::processInfo() {
    return services_->processInfo;
}
TextInputSources& LinuxPlatform::inputSources() {
    return services_->desktopSettings;
}
Random& LinuxPlatform::random() {
    return services_->random;
}
MessageDigest& LinuxPlatform::digest() {
    return services_->digest;
}
AddressParser& LinuxPlatform::addresses() {
    return services_->addresses;
}

PropertyListReader& LinuxPlatform::propertyLists() {
    return services_->settings;
}
UserDefaults& LinuxPlatform::userDefaults() {
    return services_->userDefaults;
}
Bundle& LinuxPlatform::bundle() {
    return services_->bundle;
}

UrlSession& LinuxPlatform::urlSession() {
    return services_->linkKeys;
}
std::string LinuxPlatform::sharingServiceOrigin() const {
    return services_->environment.serviceOrigin;
}
NatPortMapping& LinuxPlatform::natPortMapping() {
    return services_->natPortMapping;
}

Authorization& LinuxPlatform::authorization() {
    return services_->authorization;
}

Viewers& LinuxPlatform::viewers() {
    return services_->screenServer;
}
WayIn& LinuxPlatform::wayIn() {
    return services_->relaySettings;
}
Preferences& LinuxPlatform::preferences() {
    return services_->preferences;
}

void LinuxPlatform::whenScreenSharingEnds(std::function<void()> callback) {
    services_->screenServer.ended = [this, callback = std::move(callback)] {
        services_->screenSharing.serverEnded();
        // It may be what somebody says to the server by which its end shows.
        services_->mainQueue.async(callback);
    };
}

const Observable<bool>& LinuxPlatform::enableToolWorks() const {
    return services_->screenSharing.toolWorks();
}

void LinuxPlatform::quitBegins() {
    services_->screenServer.ended = nullptr;
    // Before anything else ends, so that this is what helpers are told.
    services_->screenServer.setLink(linkForGate(nullptr));
    services_->screenServer.hangUp();
    services_->urlSession.quitBegins();
}

const Explanations& LinuxPlatform::explanations() {
    return services_->explanations;
}

}  // namespace zelvo::platform
