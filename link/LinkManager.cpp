#include "link/LinkManager.h"

#include <utility>

#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/Random.h"
#include "platform/UserDefaults.h"

namespace zelvo {

namespace {

constexpr const char* UseNewLinkKey = "useNewLinkAtEveryLaunch";
constexpr const char* KeptLinkKey = "permanentSharedLink";

/// Whether the reply reports success: the number 0, and nothing that merely reads as 0.
bool isSuccess(const LinkManager::Reply& reply) {
    const auto* status = reply ? reply->find("StatusCode") : nullptr;
    if (!status)
        return false;
    if (const auto* number = status->integer())
        return *number == 0;
    const auto* number = status->real();
    return number && *number == 0;
}

}  // namespace

LinkManager::LinkManager(const platform::Platform& platform, LinkManagerDelegate*)
    : platform_(platform),
      sysInfo_(platform, this),
      portMapper_(std::make_shared<PortMapper>(platform.natPortMapping)),
      keyboard_(platform.propertyLists, platform.bundle, platform.log) {}

LinkManager::~LinkManager() {
    invalidateLink(nullptr);
}

void LinkManager::createSharedLinkWithInternalPort(std::int64_t internalPort,
                                                   LinkCompletion completion) {
    const auto externalPort =
        static_cast<std::uint16_t>(platform_.random.uniform32() % 55534 + 10000);
    ++creations_;
    portMapper_->close();
    portMapper_->tryMappingPort(
        static_cast<std::uint16_t>(internalPort), externalPort,
        [self = shared_from_this(), completion = std::move(completion)](
            bool, std::optional<std::string> address, std::uint16_t port,
            std::optional<platform::Error>) { self->mappingAnswered(address, port, completion); });
}

void LinkManager::mappingAnswered(const std::optional<std::string>& address, std::uint16_t port,
                                  const LinkCompletion& completion) {
    if (port != 0) {
        publicPort_ = port;
        publicAddress_ = address;
        createSharedLinkWithCompletion([self = shared_from_this(), completion](Reply reply) {
            self->registrationAnswered(reply, completion);
        });
    } else {
        publicPort_ = -1;
        publicAddress_ = std::nullopt;
        failLater(LinkManagerPortMappingFailed, completion);
    }
    platform_.log.line(sysInfo_.computerName() + " -> " + sysInfo_.localHostname());
}

void LinkManager::registrationAnswered(const Reply& reply, const LinkCompletion& completion) {
    const auto* member = isSuccess(reply) ? reply->find("link") : nullptr;
    const auto* link = member ? member->string() : nullptr;
    if (!link || link->empty()) {
        failLater(LinkManagerRegistrationFailed, completion);
        return;
    }
    sharedLink_ = *link;
    linkHasEnded_ = false;
    keepLink();
    getSharedLinkInfo(*sharedLink_, [self = shared_from_this(), completion](Reply) {
        self->platform_.mainQueue.async([self, completion] {
            completion(self->publicAddress_,
                       static_cast<std::int32_t>(self->publicPort_.value_or(0)),
                       "zelvo://" + self->sharedLink_.value_or(""));
        });
    });
}

void LinkManager::failLater(LinkManagerFailure failure, const LinkCompletion& completion) {
    platform_.mainQueue.async([self = shared_from_this(), failure, completion] {
        completion(std::nullopt, failure, std::nullopt);
    });
}

void LinkManager::invalidateLink(PlainCompletion completion) {
    if (!sharedLink_) {
        if (completion)
            completion();
        return;
    }
    const bool deletes = linkHasEnded_ || usesNewLinkAtEveryLaunch();
    keepLink();
    // None while the manager is being destroyed: only the mapper is needed to the end.
    auto self = weak_from_this().lock();
    auto withdrawn = [self, mapper = portMapper_, creation = creations_,
                      completion = std::move(completion)](const Reply&) {
        // A creation that began meanwhile has closed this link's mapping already.
        if (!self || self->creations_ == creation)
            mapper->close();
        if (completion)
            completion();
    };
    if (deletes)
        deleteSharedLink(*sharedLink_, std::move(withdrawn));
    else
        updateSharedLinkWithAvailabilityStatus(LinkUnavailable, std::move(withdrawn));
}

void LinkManager::endLink() {
    if (!sharedLink_)
        return;
    linkHasEnded_ = true;
    keepLink();
    deleteSharedLink(*sharedLink_, nullptr);
}

void LinkManager::abandonPendingMapping() {
    if (portMapper_->portMapperCompletion())
        portMapper_->abandon();
}

void LinkManager::keepLink() {
    if (linkHasEnded_ || usesNewLinkAtEveryLaunch())
        platform_.userDefaults.removeObject(KeptLinkKey);
    else
        platform_.userDefaults.setString(KeptLinkKey, *sharedLink_);
}

bool LinkManager::usesNewLinkAtEveryLaunch() const {
    return platform_.userDefaults.boolForKey(UseNewLinkKey);
}

void LinkManager::computerNameChanged(const std::string& name) {
    platform_.log.line(name);
    updateSharedLinkWithAvailabilityStatus(LinkAvailable, nullptr);
}

void LinkManager::computerLocalHostnameChanged(const std::string& name) {
    platform_.log.line(name);
    updateSharedLinkWithAvailabilityStatus(LinkAvailable, nullptr);
}

}  // namespace zelvo
