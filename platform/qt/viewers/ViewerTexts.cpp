#include "platform/qt/viewers/ViewerTexts.h"

#include <QDateTime>
#include <QLocale>
#include <chrono>

#include "platform/Viewers.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/content/ShownText.h"

namespace zelvo::platform {

QString localizedWith(const char* key, const QString& value) {
    return localized(key).replace("%@", value);
}

QString addressText(const ViewerQuestion& question) {
    return localizedWith("From the address %@", shownLine(question.address));
}

QString encryptionText(const ViewerQuestion& question) {
    return question.isEncrypted
               ? localized("Encrypted: whoever listens on the way sees nothing.")
               : localized(
                     "Not encrypted: whoever listens on the way, as in a public network, can "
                     "see your screen, too.");
}

QString viewerText(const Viewer& viewer) {
    auto address = shownLine(viewer.address);
    return viewer.rights == ViewerRights::Control
               ? localizedWith("%@ uses your mouse and keyboard", address)
               : localizedWith("%@ only watches", address);
}

QString viewerDetails(const Viewer& viewer) {
    auto since = std::chrono::system_clock::to_time_t(viewer.since);
    auto time =
        QLocale().toString(QDateTime::fromSecsSinceEpoch(since).time(), QLocale::ShortFormat);
    return viewer.isEncrypted ? localizedWith("since %@, encrypted", time)
                              : localizedWith("since %@, not encrypted", time);
}

}  // namespace zelvo::platform
