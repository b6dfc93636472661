#include "opener/window/OpenerTexts.h"

#include "platform/qt/content/Localized.h"
#include "sealing/HelperName.h"

namespace zelvo::opener {

namespace {

using platform::localized;

QString withHost(const char* key, const SessionState& state) {
    auto sentence = localized(key);
    if (!sentence.contains("%@"))
        return sentence;
    return state.host.empty() ? QString() : filled(sentence, isolated(state.host));
}

QString timeLeft(unsigned seconds) {
    return QString("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QChar('0'));
}

StateTexts textsOfAsking(const SessionState& state) {
    return {localized("Asking the computer..."),
            state.host.empty()
                ? localized("The sharing service is being asked where the computer is.")
                : withHost("Connecting to %@.", state)};
}

}  // namespace

StateTexts textsOf(const SessionState& state) {
    switch (state.stage) {
        case Stage::Asking:
            return textsOfAsking(state);
        case Stage::InLine:
            return {localized("Waiting for your turn"),
                    withHost("The user of %@ is being asked about somebody else first.", state)};
        case Stage::Asked:
            return {
                state.secondsLeft == 0
                    ? localized("Waiting for a yes")
                    : filled(localized("Waiting for a yes (%@)"), timeLeft(state.secondsLeft)),
                withHost("The user of %@ is being asked whether you may see the screen.", state)};
        case Stage::Inside:
            return {localized("You may come in"),
                    withHost("The picture of %@ is on its way.", state)};
        case Stage::Returning:
            return {localized("Coming back"),
                    withHost("The connection to %@ was lost. For a minute you are let in again "
                             "without a question.",
                             state)};
        case Stage::Ended:
            break;
    }
    const auto& texts = textsOf(state.ending);
    return {localized(texts.title), state.detail.empty() ? withHost(texts.sentence, state)
                                                         : QString::fromStdString(state.detail)};
}

QString sentenceOf(sealing::NoLink why) {
    switch (why) {
        case sealing::NoLink::Empty:
            return localized("Paste the link that you were sent.");
        case sealing::NoLink::TooLong:
            return localized(
                "This is too long for a link. Copy the link alone, without the words around it.");
        case sealing::NoLink::OtherScheme:
            return localized("A link begins with “zelvo://”. This is something else.");
        case sealing::NoLink::NoKey:
            return localized(
                "The end of this link is missing: everything from “#” on belongs to it, too. Ask "
                "for the whole link, and if it has no such end for a newer Zelvo there.");
        case sealing::NoLink::NoIdentifier:
            return localized(
                "Nothing stands between “zelvo://” and “#” in this link. Ask for it again.");
        case sealing::NoLink::BadIdentifier:
            return localized(
                "This link holds characters that no link has. Something has changed it on its "
                "way: ask for it again.");
        case sealing::NoLink::BadKey:
            break;
    }
    return localized("The end of this link, behind “#”, is damaged or cut off. Ask for it again.");
}

QString filled(const QString& sentence, const QString& object) {
    return QString(sentence).replace("%@", object);
}

QString isolated(const std::string& name) {
    constexpr QChar FirstStrongIsolate(0x2068);
    constexpr QChar PopIsolate(0x2069);
    return FirstStrongIsolate + QString::fromStdString(name) + PopIsolate;
}

QString digitsSentence() {
    return localized(
        "The other screen shows the same digits. Read them to each other by telephone: where they "
        "differ, somebody sits in between, and you should disconnect.");
}

std::string helperName(const QString& typed) {
    return sealing::asHelperName(typed.normalized(QString::NormalizationForm_C).toStdString());
}

}  // namespace zelvo::opener
