#include <string_view>
#include <utility>

#include "app/AppDelegate.h"
#include "app/Tools.h"
#include "link/FormEncoding.h"
#include "platform/Alerts.h"
#include "platform/Bundle.h"
#include "platform/Feedback.h"
#include "platform/Pasteboard.h"
#include "platform/Workspace.h"

namespace zelvo {

namespace {

/// Whether the text can be a URL: nothing but the characters of RFC 3986, escapes complete.
bool isUrl(std::string_view text) {
    constexpr std::string_view allowed = "-._~:/?#[]@!$&'()*+,;=%";
    auto isHex = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool alphanumeric =
            (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!alphanumeric && allowed.find(c) == std::string_view::npos)
            return false;
        if (c == '%' && (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])))
            return false;
    }
    return !text.empty();
}

}  // namespace

void AppDelegate::shareLink(platform::Button* sender) {
    if (sharedLink_.value().empty())
        return;
    platform_.sharingServicePicker.show(
        {text("SHARED_LINK_MESSAGE_TOP"), sharedLink_.value(), text("SHARED_LINK_MESSAGE_BOTTOM")},
        *this, sender ? sender->bounds() : platform::Rect{}, sender, platform::RectEdge::MinY);
}

std::vector<platform::SharingService> AppDelegate::sharingServicesForItems(
    const std::vector<std::string>&, std::vector<platform::SharingService> proposedServices) {
    proposedServices.push_back({text("Copy to Clipboard"), "receive-clipboard", "receive-clipboard",
                                whileAlive([this] { copyLink(); })});
    return proposedServices;
}

void AppDelegate::copyLink() {
    using platform::PasteboardObject;
    const auto& link = sharedLink_.value();
    if (link.empty())
        return;
    platform_.pasteboard.clearContents();
    std::vector<PasteboardObject> objects;
    if (isUrl(link))
        objects.push_back({PasteboardObject::Kind::Url, link});
    objects.push_back({PasteboardObject::Kind::String, link});
    platform_.pasteboard.writeObjects(objects);
}

void AppDelegate::makeNewLink() {
    if (zelvoStatus() >= ZelvoStatusWaitingForConnection)
        endSessionFor(
            "A new link ends the one that you have passed on, and disconnects whoever is "
            "connected. Do you want a new link?",
            "New Link", [this] { replaceLink(); });
}

void AppDelegate::changeWay(std::function<void()> change) {
    endSessionFor(
        "This makes the way to your computer anew, and disconnects whoever is connected. "
        "Do you want that?",
        "Yes", [this, change = std::move(change)] {
            change();
            renewWay();
        });
}

void AppDelegate::endSessionFor(const char* question, const char* yes,
                                std::function<void()> action) {
    if (!sessionUnderWay()) {
        action();
        return;
    }
    platform::Alert alert;
    alert.kind = platform::AlertKind::EndsSession;
    alert.messageText = text("Screen Sharing Session Undergoing");
    alert.informativeText = text(question);
    alert.icon = "NSCaution";
    alert.buttonTitles = {text(yes), text("No")};
    platform_.alerts.beginSheet(std::move(alert),
                                whileAlive([this, action = std::move(action)](int response) {
                                    if (response != platform::AlertFirstButtonReturn)
                                        return;
                                    // The tool may have to ask first; the link waits for nobody.
                                    action();
                                    closeConnection();
                                }));
}

void AppDelegate::replaceLink() {
    // It may have gone while the question stood.
    if (zelvoStatus() < ZelvoStatusWaitingForConnection)
        return;
    linkManager_->endLink();
    registerAgain();
}

void AppDelegate::renewWay() {
    if (zelvoStatus() == ZelvoStatusMappingPort) {
        // A registration cannot be taken back half-way.
        renewsWay_ = !linkManager_->portMapper().portMapperCompletion();
        if (!renewsWay_)
            createLink();
        return;
    }
    // Whoever failed is asked whether to try again.
    if (zelvoStatus() < ZelvoStatusWaitingForConnection)
        return;
    linkManager_->invalidateLink(nullptr);
    registerAgain();
}

void AppDelegate::registerAgain() {
    waitingTimer_.reset();
    stillActiveTimer_.reset();
    sharedLink_.set("");
    setZelvoStatus(ZelvoStatusServiceEnabled);
}

void AppDelegate::closeConnection() {
    // The watch sees the connection gone and moves the status on.
    if (zelvoStatus() >= ZelvoStatusServiceEnabled)
        runToolWithPrivileges(DisconnectScreenSharingTool, [](bool) {});
}

void AppDelegate::startOver() {
    if (zelvoStatus() == ZelvoStatusMappingFailed)
        setZelvoStatus(ZelvoStatusServiceEnabled);
    else if (zelvoStatus() < ZelvoStatusServiceEnabled)
        enableScreenSharingServiceIfNeeded();
}

void AppDelegate::showHelp() {
    openHelpPage("HELP_PAGE_GENERAL");
}

void AppDelegate::showRouterHelp() {
    openHelpPage("HELP_PAGE_ROUTER");
}

bool AppDelegate::alertShowHelp() {
    showRouterHelp();
    return true;
}

void AppDelegate::openHelpPage(const char* key) {
    // The string table names the page in the user's language, relative to the resources.
    auto path = percentEscaped(platform_.bundle.resourcePath() + '/' + text(key));
    // Legal in a URL, but not in its path.
    for (auto at = path.find('?'); at != std::string::npos; at = path.find('?', at))
        path.replace(at, 1, "%3F");
    platform_.workspace.openUrl("file://" + path);
}

void AppDelegate::showFeedbackDialog() {
    platform_.feedback.showFeedbackDialog(0);
}

}  // namespace zelvo
