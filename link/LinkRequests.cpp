#include <string>
#include <string_view>
#include <utility>

#include "link/FormEncoding.h"
#include "link/LinkManager.h"
#include "platform/Bundle.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/ProcessInfo.h"
#include "platform/PropertyListReader.h"
#include "platform/TextInputSources.h"
#include "platform/UserDefaults.h"
#include "snapshot/HostSettingsPayload.h"
#include "snapshot/Utf8.h"

namespace zelvo {

namespace {

using platform::PropertyList;

/// The bytes as text; "(null)" where they are not UTF-8 (RFC 3629).
std::string decodedBody(const std::vector<std::byte>& body) {
    std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto length = utf8SequenceLength(text.substr(at));
        if (length == 0)
            return "(null)";
        at += length;
    }
    return std::string(text);
}

PropertyList textOrEmpty(const std::optional<std::string>& value) {
    return value.value_or(std::string());
}

}  // namespace

void LinkManager::createSharedLinkWithCompletion(ReplyCompletion completion) {
    readKeyboardInputSource();
    std::optional<std::string> kept;
    if (!usesNewLinkAtEveryLaunch())
        kept = platform_.userDefaults.stringForKey("permanentSharedLink");
    auto fields = commonFields();
    fields["permanentSharedLink"] = textOrEmpty(kept);
    sendRequest(createPostURLRequest(endpoint("create.php"), fields), nullptr,
                onMainQueue(std::move(completion)));
}

void LinkManager::updateSharedLinkWithAvailabilityStatus(std::int64_t status,
                                                         ReplyCompletion completion) {
    if (!sharedLink_ || !publicAddress_) {
        if (completion)
            platform_.mainQueue.async(
                [self = weak_from_this().lock(), completion = std::move(completion)] {
                    completion(std::nullopt);
                });
        return;
    }
    readKeyboardInputSource();
    auto fields = commonFields();
    fields["sharedLink"] = *sharedLink_;
    fields["availabilityStatus"] = status;
    sendRequest(createPostURLRequest(endpoint("update.php"), fields), nullptr,
                onMainQueue(std::move(completion)));
}

void LinkManager::getSharedLinkInfo(const std::string&, ReplyCompletion completion) {
    if (!sharedLink_)
        return;
    sendRequest(createPostURLRequest(endpoint("get.php"), {{"link", *sharedLink_}}), nullptr,
                onMainQueue(std::move(completion)));
}

void LinkManager::deleteSharedLink(const std::string&, ReplyCompletion completion) {
    if (!sharedLink_)
        return;
    platform_.urlSession.dataTask(
        createPostURLRequest(endpoint("delete.php"), {{"link", *sharedLink_}}),
        [done = onMainQueue(std::move(completion))](const platform::UrlResult&) {
            done(std::nullopt);
        });
}

platform::UrlRequest LinkManager::createPostURLRequest(
    const std::string& url, const PropertyList::Dictionary& params) const {
    std::string fields;
    for (const auto& [name, value] : params)
        appendField(fields, name, value);
    return formPost(url, fields);
}

void LinkManager::sendRequest(platform::UrlRequest request, platform::Error*,
                              ReplyCompletion completion) {
    // What the handler needs outlives the manager, which may be gone when the answer comes.
    platform_.urlSession.dataTask(
        std::move(request),
        [&log = platform_.log, &reader = platform_.propertyLists, &mainQueue = platform_.mainQueue,
         completion = std::move(completion)](const platform::UrlResult& result) {
            Reply reply;
            if (result.data) {
                auto parsed = reader.parse(*result.data);
                if (parsed.error && parsed.error->domain == platform::CocoaErrorDomain &&
                    parsed.error->code == platform::PropertyListReadCorruptError)
                    log.line(decodedBody(*result.data));
                reply = std::move(parsed.value);
            } else {
                log.line(result.error ? platform::describe(*result.error) : "(null)");
            }
            mainQueue.async([completion, reply = std::move(reply)] { completion(reply); });
        });
}

LinkManager::ReplyCompletion LinkManager::onMainQueue(ReplyCompletion completion) {
    return [self = weak_from_this().lock(), &mainQueue = platform_.mainQueue,
            completion = std::move(completion)](Reply reply) {
        if (completion)
            mainQueue.async([self, completion, reply = std::move(reply)] { completion(reply); });
    };
}

std::string LinkManager::endpoint(const char* name) const {
    return platform_.sharingServiceOrigin + "/app/4.8.1/sharing/" + name;
}

void LinkManager::readKeyboardInputSource() {
    setCurrentKeyboardLayout(platform_.inputSources.currentKeyboardInputSourceId());
}

PropertyList::Dictionary LinkManager::commonFields() const {
    return {
        {"ComputerName", sysInfo_.computerName()},
        {"LocalHostname", sysInfo_.localHostname()},
        {"vncPort", std::int64_t{sysInfo_.vncListeningPort()}},
        {"IPAddress", textOrEmpty(publicAddress_)},
        {"Port", publicPort_ ? PropertyList(*publicPort_) : PropertyList()},
        {"MacAddress", SystemInformation::macAddressHexString(platform_.hardware, platform_.log)},
        {"LastKeyboardLocale", textOrEmpty(currentKeyboardLayout())},
        {"MappedService", "vnc"},
        {"HotKeys", getSystemInformation()},
    };
}

std::string LinkManager::getSystemInformation() const {
    return hostSettingsPayload(platform_.propertyLists, platform_.bundle, platform_.processInfo,
                               [this](std::int32_t keyCode) { return translateKeyCode(keyCode); });
}

}  // namespace zelvo
