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

namespace {

// Who comes directly has the address that they connect from.
template <typename Somebody>
QString originText(const Somebody& somebody) {
    return localizedWith(
        somebody.isRelayed ? "Through a relay, which names the address %@" : "From the address %@",
        shownLine(somebody.address));
}

}  // namespace

QString titleText(const ViewerQuestion& question) {
    return question.name.empty() ? localized("Somebody wants to see your screen")
                                 : localizedWith("%@, who has your link, wants to see your screen",
                                                 shownName(question.name));
}

QString addressText(const ViewerQuestion& question) {
    return originText(question);
}

QString proofText(const ViewerQuestion& question) {
    return question.digits.empty()
               ? localized(
                     "This viewer has no proof of your link: whoever finds your address and port "
                     "can ask like this.")
               : localized("The link is proven; the name is what they call themselves.");
}

QString encryptionText(const ViewerQuestion& question) {
    if (!question.digits.empty())
        return localized("Sealed with your link: whoever listens on the way sees nothing.");
    return question.isEncrypted
               ? localized("Encrypted: whoever listens on the way sees nothing.")
               : localized(
                     "Not encrypted: whoever listens on the way, as in a public network, can "
                     "see your screen, too.");
}

QString whoText(const Viewer& viewer) {
    return viewer.name.empty() ? shownLine(viewer.address) : shownName(viewer.name);
}

QString viewerText(const Viewer& viewer) {
    auto who = whoText(viewer);
    return viewer.rights == ViewerRights::Control
               ? localizedWith("%@ uses your mouse and keyboard", who)
               : localizedWith("%@ only watches", who);
}

QString awayText(const Viewer& viewer) {
    return localizedWith("%@ has lost the connection and may come back unasked within a minute",
                         whoText(viewer));
}

QString viewerDetails(const Viewer& viewer) {
    auto since = std::chrono::system_clock::to_time_t(viewer.since);
    auto time =
        QLocale().toString(QDateTime::fromSecsSinceEpoch(since).time(), QLocale::ShortFormat);
    if (!viewer.digits.empty())
        return localizedWith("since %@, sealed with your link", time) + '\n' +
               localizedWith("Digits: %@", shownLine(viewer.digits)) + '\n' + originText(viewer);
    return viewer.isEncrypted ? localizedWith("since %@, encrypted", time)
                              : localizedWith("since %@, not encrypted", time);
}

}  // namespace zelvo::platform
