#include "platform/qt/window/Bindings.h"

#include <QObject>
#include <memory>
#include <optional>
#include <string>

#include "platform/Bundle.h"
#include "platform/Explanations.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/core/StatusTexts.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::platform {

namespace {

using Model = MainWindowModel;
using Write = std::function<void(const QVariant&)>;

struct Source {
    const Model& model;
    const Explanations& explanations;
    const Bundle& bundle;
};

/// Tells a property's writer of every value.
using Value = std::function<std::vector<Subscription>(const Source&, Write)>;

std::vector<Subscription> only(Subscription subscription) {
    std::vector<Subscription> list;
    list.push_back(std::move(subscription));
    return list;
}

Value of(const Observable<std::string>& (Model::*text)() const, const char* whileEmpty = "") {
    return [text, whileEmpty](const Source& source, Write write) {
        return only((source.model.*text)().bind(
            [whileEmpty, write = std::move(write)](const std::string& value) {
                write(value.empty() ? QString(whileEmpty) : QString::fromStdString(value));
            }));
    };
}

Value of(const Observable<bool>& (Model::*flag)() const) {
    return [flag](const Source& source, Write write) {
        return only(
            (source.model.*flag)().bind([write = std::move(write)](bool value) { write(value); }));
    };
}

Value whileConnected() {
    return [](const Source& source, Write write) {
        return only(source.model.zelvoStatusProperty().bind(
            [write = std::move(write)](std::int32_t status) {
                write(status == ZelvoStatusConnected);
            }));
    };
}

Value of(std::string StatusTexts::*part) {
    return [part](const Source& source, Write write) {
        auto show = [part, write = std::move(write), source](const auto&) {
            auto texts = statusTexts(source.model, source.explanations, source.bundle);
            write(QString::fromStdString(texts.*part));
        };
        auto list = only(source.model.zelvoStatusProperty().bind(show));
        list.push_back(source.model.isQuitting().subscribe(show));
        list.push_back(source.explanations.screenSharing().subscribe(show));
        list.push_back(source.explanations.router().subscribe(show));
        return list;
    };
}

Value linkOnceReady() {
    return [](const Source& source, Write write) {
        auto show = [write = std::move(write), &model = source.model](const auto&) {
            write(model.readyToShare().value() ? QString::fromStdString(model.sharedLink().value())
                                               : QString());
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
        {"appIcon", "image", of(&Model::appIcon, "AppIcon-Disabled")},
        {"statusTitle", "text", of(&StatusTexts::title)},
        {"statusExplanation", "text", of(&StatusTexts::explanation)},
        {"linkText", "text", linkOnceReady()},
        {"shareButton", "enabled", of(&Model::readyToShare)},
        {"portMappingIcon", "image", of(&Model::portMappingStatusIcon)},
        {"portMappingText", "text", of(&Model::portMappingStatusText)},
        {"portMappingSpinner", "spinning", of(&Model::animatePortMappingSpinner)},
        {"portMappingButton", "visible", of(&Model::showPortMappingButton)},
        {"connectionIcon", "image", of(&Model::waitingForConnectionStatusIcon)},
        {"connectionText", "text", of(&Model::waitingForConnectionStatusText)},
        {"connectionSpinner", "spinning", of(&Model::animateWaitingForConnectionSpinner)},
        {"disconnectButton", "visible", whileConnected()},
        {"versionInfo", "text", of(&Model::versionInfo)},
        {"actionShare", "enabled", of(&Model::readyToShare)},
        {"actionCopyLink", "enabled", of(&Model::readyToShare)},
        {"actionDisconnect", "enabled", whileConnected()},
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

std::vector<Subscription> bindControls(QObject& root, const MainWindowModel& model,
                                       const Explanations& explanations, const Bundle& bundle) {
    std::vector<Subscription> all;
    for (const auto& [control, property, value] : table())
        if (auto* object = root.findChild<QObject*>(control))
            for (auto& subscription :
                 value({model, explanations, bundle}, writer(object, property)))
                all.push_back(std::move(subscription));
    return all;
}

}  // namespace zelvo::platform
