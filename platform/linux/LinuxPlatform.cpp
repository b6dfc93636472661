#include "platform/linux/LinuxPlatform.h"

#include <csignal>

#include "platform/linux/InstalledBundle.h"
#include "platform/linux/LinuxExplanations.h"
#include "platform/linux/base/Environment.h"
#include "platform/linux/base/SystemLog.h"
#include "platform/linux/desktop/DesktopInputSources.h"
#include "platform/linux/https/CurlUrlSession.h"
#include "platform/linux/machine/InetAddressParser.h"
#include "platform/linux/machine/NetlinkSocketTable.h"
#include "platform/linux/machine/NssServicesDatabase.h"
#include "platform/linux/machine/OpenSslMessageDigest.h"
#include "platform/linux/machine/OsReleaseProcessInfo.h"
#include "platform/linux/machine/ProcProcessTable.h"
#include "platform/linux/machine/SysfsHardwareRegistry.h"
#include "platform/linux/machine/SystemRandom.h"
#include "platform/linux/names/HostnamedDynamicStore.h"
#include "platform/linux/nat/RouterExplanation.h"
#include "platform/linux/nat/RouterPortMapping.h"
#include "platform/linux/privileges/SystemAuthorization.h"
#include "platform/linux/property_lists/FileUserDefaults.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "platform/linux/screen_sharing/ScreenSharingExplanation.h"
#include "platform/linux/screen_sharing/ScreenSharingSettings.h"
#include "platform/linux/screen_sharing/ServerEndWatch.h"

namespace zelvo::platform {

namespace {

std::string ownFolder(const std::string& base) {
    return base.empty() ? base : base + "/zelvo";
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
    FileUserDefaults userDefaults{ownFolder(environment.configHome), log};
    InstalledBundle bundle{{.executableFolder = "",
                            .languages = environment.languages,
                            .dataHome = environment.dataHome},
                           propertyLists};
    DesktopInputSources inputSources{{.desktop = environment.desktop,
                                      .display = environment.xDisplay,
                                      .configHome = environment.configHome},
                                     bundle,
                                     propertyLists,
                                     log};

    ScreenSharingExplanation screenSharing{mainQueue, bundle,
                                           environment.systemRoot + "/run/reason"};
    ServerEndWatch serverEnd;
    ScreenSharingSettings settings{propertyLists,
                                   services,
                                   {.asked = [this] { screenSharing.update(); },
                                    .listens = [this](pid_t server) { serverEnd.watch(server); }}};
    RouterExplanation router{bundle, log};
    LinuxExplanations explanations{screenSharing.text(), router.text()};

    CurlUrlSession urlSession{
        mainQueue,
        {.certificateFile = environment.certificateFile,
         .seenFrom = [this](const std::string& address) { router.seenFrom(address); }}};
    RouterPortMapping natPortMapping{
        mainQueue,
        log,
        {.router = environment.router,
         .stateFolder = ownFolder(environment.stateHome),
         .heard = [this](const auto& reply) { router.mappingReplied(reply); }}};

    SystemAuthorization authorization{log, {.asSelf = environment.authorizesItself}};
};

LinuxPlatform::LinuxPlatform(MainQueue& mainQueue) {
    ::signal(SIGPIPE, SIG_IGN);
    services_ = std::make_unique<Services>(mainQueue);
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
    return services_->sockets;
}
ProcessTable& LinuxPlatform::processes() {
    return services_->processes;
}
ProcessInfo& LinuxPlatform::processInfo() {
    return services_->processInfo;
}
TextInputSources& LinuxPlatform::inputSources() {
    return services_->inputSources;
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
    return services_->urlSession;
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

void LinuxPlatform::whenScreenSharingEnds(std::function<void()> callback) {
    services_->serverEnd.ended = std::move(callback);
}

const Explanations& LinuxPlatform::explanations() {
    return services_->explanations;
}

}  // namespace zelvo::platform
