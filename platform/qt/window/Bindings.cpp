#include "platform/qt/window/Bindings.h"

#include <QObject>
#include <memory>
#include <optional>
#include <string>

#include "platform/Bundle.h"
#include "platform/Explanations.h"
#include "platform/MainWindowModel.h"
#include "platform/Preferences.h"
#include "platform/Viewers.h"
#include "platform/WayIn.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/content/ShownText.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/qt/viewers/ViewerTexts.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::platform {

namespace {

using Model = MainWindowModel;
using Write = std::function<void(const QVariant&)>;
using Source = BindingSource;

/// Tells a property's writer of every value.
using Value = std::function<std::vector<Subscription>(const Source&, Write)>;

std::vector<Subscription> only(Subscription subscription) {
    std::vector<Subscription> list;
    list.push_back(std::move(subscription));
    return list;
}

Value of(const Observable<std::string>& (Model::*text)() const) {
    return [text](const Source& source, Write write) {
        return only(
            (source.model.*text)().bind([write = std::move(write)](const std::string& value) {
                write(QString::fromStdString(value));
            }));
    };
}

Value of(const Observable<bool>& (Model::*flag)() const) {
    return [flag](const Source& source, Write write) {
        return only(
            (source.model.*flag)().bind([write = std::move(write)](bool value) { write(value); }));
    };
}

Value of(const Observable<bool>& (Preferences::*choice)() const) {
    return [choice](const Source& source, Write write) {
        return only((source.preferences.*choice)().bind(
            [write = std::move(write)](bool value) { write(value); }));
    };
}

/// What depends on who is at the door.
Value ofDoor(std::function<QVariant(const Source&)> of) {
    return [of = std::move(of)](const Source& source, Write write) {
        auto show = [of, source, write = std::move(write)](const auto&) { write(of(source)); };
        auto list = only(source.model.zelvoStatusProperty().bind(show));
        list.push_back(source.model.isQuitting().subscribe(show));
        list.push_back(source.model.appIcon().subscribe(show));
        list.push_back(source.viewers.inside().subscribe(show));
        list.push_back(source.viewers.away().subscribe(show));
        list.push_back(source.viewers.question().subscribe(show));
        list.push_back(source.viewers.refusesEverybody().subscribe(show));
        list.push_back(source.viewers.admitsOnlyLinkHolders().subscribe(show));
        return list;
    };
}

/// What depends on how people come in.
Value ofWayIn(std::function<QVariant(const Source&)> of) {
    return [of = std::move(of)](const Source& source, Write write) {
        auto show = [of, source, write = std::move(write)](const auto&) { write(of(source)); };
        auto list = only(source.wayIn.relayUse().bind(show));
        list.push_back(source.wayIn.isRelay().subscribe(show));
        list.push_back(source.wayIn.isBarred().subscribe(show));
        list.push_back(source.model.readyToShare().subscribe(show));
        return list;
    };
}

Value uses(RelayUse use) {
    return ofWayIn([use](const Source& source) { return source.wayIn.relayUse().value() == use; });
}

QVariant wayInSentence(const Source& source) {
    const auto& wayIn = source.wayIn;
    if (wayIn.relayUse().value() == RelayUse::Never)
        return localized("Not now: the Settings menu forbids relays, which browsers need.");
    if (wayIn.relayUse().value() == RelayUse::WhereNeeded)
        return localized(wayIn.isRelay().value()
                             ? "A browser is enough: people come through a relay already."
                             : "Then people come through a relay, which cannot see your screen.");
    return localized("The relay cannot see your screen; whoever runs the website could.");
}

/// Or may be at any moment, without a question.
bool isSomebodyInside(const Source& source) {
    return source.model.zelvoStatusProperty().value() == ZelvoStatusConnected ||
           !source.viewers.inside().value().empty() || !source.viewers.away().value().empty();
}

bool isSomebodyAsking(const Source& source) {
    return source.viewers.question().value().has_value();
}

bool refusesEverybody(const Source& source) {
    return source.viewers.refusesEverybody().value();
}

bool admitsOnlyLinkHolders(const Source& source) {
    return source.viewers.admitsOnlyLinkHolders().value();
}

QVariant whoMayAsk(const Source& source) {
    return localized(admitsOnlyLinkHolders(source)
                         ? "Plain VNC viewers have no proof: they are refused without a question."
                         : "Plain VNC viewers have no proof: you are asked about them, too.");
}

bool mayMakeNewLink(const Source& source) {
    return source.model.zelvoStatusProperty().value() >= ZelvoStatusWaitingForConnection;
}

QVariant question(const Source& source) {
    const auto& question = source.viewers.question().value();
    return titleText(question.value_or(ViewerQuestion()));
}

QVariant stateOfDoor(const Source& source) {
    switch (doorState(source.model, source.viewers)) {
        case DoorState::Asking:
            return "asking";
        case DoorState::Connected:
            return "connected";
        default:
            return "";
    }
}

QVariant imageOfDoor(const Source& source) {
    auto state = stateOfDoor(source).toString();
    if (!state.isEmpty())
        return "state-" + state;
    const auto& icon = source.model.appIcon().value();
    return icon.empty() ? QString("AppIcon-Disabled") : QString::fromStdString(icon);
}

Value of(std::string StatusTexts::*part) {
    return [part](const Source& source, Write write) {
        auto show = [part, write = std::move(write), source](const auto&) {
            auto texts =
                statusTexts(source.model, source.explanations, source.bundle, &source.viewers);
            write(QString::fromStdString(texts.*part));
        };
        auto list = only(source.model.zelvoStatusProperty().bind(show));
        list.push_back(source.model.isQuitting().subscribe(show));
        list.push_back(source.explanations.screenSharing().subscribe(show));
        list.push_back(source.explanations.screenLimits().subscribe(show));
        list.push_back(source.explanations.router().subscribe(show));
        list.push_back(source.explanations.way().subscribe(show));
        list.push_back(source.explanations.keptLink().subscribe(show));
        list.push_back(source.explanations.withdrawal().subscribe(show));
        list.push_back(source.viewers.inside().subscribe(show));
        list.push_back(source.viewers.question().subscribe(show));
        return list;
    };
}

Value linkOnceReady() {
    return [](const Source& source, Write write) {
        auto show = [write = std::move(write), &model = source.model](const auto&) {
            write(model.readyToShare().value() ? shownLine(model.sharedLink().value()) : QString());
        };
        auto list = only(source.model.sharedLink().bind(show));
        list.push_back(source.model.readyToShare().subscribe(show));
        return list;
    };
}

struct Binding {
    const char* control;
    const char* property;
    Value value;
};

std::vector<Binding> table() {
    return {
        {"appIcon", "image", ofDoor(imageOfDoor)},
        {"statePanel", "state", ofDoor(stateOfDoor)},
        {"statusTitle", "text", of(&StatusTexts::title)},
        {"statusExplanation", "text", of(&StatusTexts::explanation)},
        {"linkText", "text", linkOnceReady()},
        {"shareButton", "enabled", of(&Model::readyToShare)},
        {"newLinkButton", "enabled", ofDoor(mayMakeNewLink)},
        {"onlyLinkHolders", "checked", ofDoor(admitsOnlyLinkHolders)},
        {"whoMayAskText", "text", ofDoor(whoMayAsk)},
        {"onlyABrowser", "checked", uses(RelayUse::Preferred)},
        {"wayInText", "text", ofWayIn(wayInSentence)},
        {"portMappingIcon", "image", of(&Model::portMappingStatusIcon)},
        {"portMappingText", "text", of(&Model::portMappingStatusText)},
        {"portMappingSpinner", "spinning", of(&Model::animatePortMappingSpinner)},
        {"portMappingButton", "visible", of(&Model::showPortMappingButton)},
        {"useRelayButton", "visible", ofWayIn([](const Source& source) {
             return source.wayIn.isBarred().value() && source.model.readyToShare().value();
         })},
        {"connectionIcon", "image", of(&Model::waitingForConnectionStatusIcon)},
        {"connectionText", "text", of(&Model::waitingForConnectionStatusText)},
        {"connectionSpinner", "spinning", of(&Model::animateWaitingForConnectionSpinner)},
        {"viewersPanel", "visible", ofDoor([](const Source& source) {
             return isSomebodyInside(source) || isSomebodyAsking(source) ||
                    refusesEverybody(source);
         })},
        {"disconnectButton", "visible", ofDoor(isSomebodyInside)},
        {"questionLine", "visible", ofDoor(isSomebodyAsking)},
        {"questionText", "text", ofDoor(question)},
        {"refusesLine", "visible", ofDoor(refusesEverybody)},
        {"versionInfo", "text", of(&Model::versionInfo)},
        {"actionShare", "enabled", of(&Model::readyToShare)},
        {"actionCopyLink", "enabled", of(&Model::readyToShare)},
        {"actionCopyWebLink", "enabled", ofWayIn([](const Source& source) {
             return source.model.readyToShare().value() && source.wayIn.isRelay().value();
         })},
        {"actionNewLink", "enabled", ofDoor(mayMakeNewLink)},
        {"actionOnlyLinkHolders", "checked", ofDoor(admitsOnlyLinkHolders)},
        {"actionOnlyABrowser", "checked", uses(RelayUse::Preferred)},
        {"actionNewLinks", "checked", of(&Preferences::makesNewLinks)},
        {"actionTrayIcon", "checked", of(&Preferences::showsTrayIcon)},
        {"actionNeverARelay", "checked", uses(RelayUse::Never)},
        {"actionDisconnect", "enabled", ofDoor([](const Source& source) {
             return isSomebodyInside(source) || isSomebodyAsking(source);
         })},
    };
}

// The model writes more often than a value changes; only changes reach the control.
Write writer(QObject* control, const char* property) {
    return [control, property,
            last = std::make_shared<std::optional<QVariant>>()](const QVariant& value) {
        if (*last == value)
            return;
        bool first = !last->has_value();
        *last = value;
        control->setProperty(property, value);
        if (auto* status = qobject_cast<StatusLabel*>(control); status && !first)
            status->announce();
    };
}

}  // namespace

std::vector<Subscription> bindControls(QObject& root, const BindingSource& source) {
    std::vector<Subscription> all;
    for (const auto& [control, property, value] : table())
        if (auto* object = root.findChild<QObject*>(control))
            for (auto& subscription : value(source, writer(object, property)))
                all.push_back(std::move(subscription));
    return all;
}

}  // namespace zelvo::platform
