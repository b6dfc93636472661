#include "platform/qt/sharing/SharingServices.h"

#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QStandardPaths>
#include <QWidget>

#include "platform/WayIn.h"
#include "platform/Workspace.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/content/Message.h"
#include "platform/qt/content/QrCode.h"
#include "platform/qt/programs/MailProgram.h"
#include "platform/qt/sharing/QrCodeDialog.h"
#include "platform/qt/widgets/NoticeLine.h"

namespace zelvo::platform {

namespace {

bool listsScheme(const QString& path, const QByteArray& entry) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    bool counts = false;
    while (!file.atEnd()) {
        auto line = file.readLine().trimmed();
        if (line.startsWith('['))
            counts = line != "[Removed Associations]";
        if (counts && line.startsWith(entry) && line.size() > entry.size())
            return true;
    }
    return false;
}

}  // namespace

bool hasSchemeHandler(const std::string& scheme) {
    auto entry = "x-scheme-handler/" + QByteArray::fromStdString(scheme) + "=";
    using Paths = QStandardPaths;
    for (const auto& folder : Paths::standardLocations(Paths::GenericConfigLocation))
        if (listsScheme(folder + "/mimeapps.list", entry))
            return true;
    for (const auto& folder : Paths::standardLocations(Paths::ApplicationsLocation))
        for (const auto* name : {"/mimeapps.list", "/mimeinfo.cache"})
            if (listsScheme(folder + name, entry))
                return true;
    return false;
}

std::vector<SharingService> desktopSharingServices(const std::vector<std::string>& items,
                                                   const WayIn& wayIn, const Bundle& bundle,
                                                   Workspace& workspace, QWidget* window,
                                                   std::function<void(const Notice&)> say) {
    std::vector<SharingService> services;
    const auto webLink = items.size() > 1 ? wayIn.webLink(items[1]) : std::string();
    const auto text = QString::fromStdString(messageOf(items, wayIn, bundle));
    auto add = [&](const char* title, const char* image, std::function<void()> handler) {
        services.push_back({localized(title).toStdString(), image, image, std::move(handler)});
    };
    if (hasMailProgram())
        add("E-mail…", "share-mail", [text, window, say] {
            composeMail(localized("A look at my screen"), text, window,
                        [say] { say(LinkNotOpened); });
        });
    if (hasSchemeHandler("sms"))
        add("Text Message…", "share-message", [text, &workspace, say] {
            QGuiApplication::clipboard()->setText(text);
            say(PasteText);
            workspace.openUrl("sms:");
        });
    // Every telephone opens a page, and hardly one knows what else to do with a link of ours.
    if (makeQrCode(webLink))
        add("QR Code…", "share-qr-code", [webLink, isRelay = wayIn.isRelay().value(), window] {
            showQrCodeDialog(window, webLink, isRelay);
        });
    if (wayIn.isRelay().value() && !webLink.empty())
        add("Copy Link for Browsers", "receive-clipboard", [webLink, say] {
            QGuiApplication::clipboard()->setText(QString::fromStdString(webLink));
            say(Copied);
        });
    return services;
}

}  // namespace zelvo::platform
