#include "platform/linux/desktop/SystemKeyboard.h"

#include <QSocketNotifier>
#include <QVariantMap>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/base/ShellAssignments.h"
#include "platform/linux/desktop/InputSourceId.h"
#include "platform/linux/desktop/MessageBus.h"
#include "platform/linux/desktop/XServerKeyboard.h"

namespace zelvo::platform {

namespace {

constexpr BusCall localeQuestion{"org.freedesktop.locale1", "/org/freedesktop/locale1",
                                 "org.freedesktop.DBus.Properties", "GetAll"};

std::string text(const QVariantMap& properties, const char* name) {
    return properties.value(name).toString().toStdString();
}

}  // namespace

SystemKeyboard::SystemKeyboard(Options options, std::function<void()> changed)
    : options_(std::move(options)), changed_(std::move(changed)) {}

std::optional<std::string> SystemKeyboard::inputSource() {
    if (auto layout = xServerLayout())
        return layout;
    if (auto layout = localeServiceLayout())
        return layout;
    return fileLayout();
}

std::optional<std::string> SystemKeyboard::localeServiceLayout() const {
    MessageBus bus(MessageBus::Kind::System, options_.bus);
    if (!bus.isConnected())
        return std::nullopt;
    // What it would say once started, the keyboard's file says at once.
    auto properties = bus.ask<QVariantMap>(localeQuestion, {QString(localeQuestion.service)});
    if (!properties)
        return std::nullopt;
    return inputSourceId(text(*properties, "X11Layout"), text(*properties, "X11Variant"));
}

std::optional<std::string> SystemKeyboard::fileLayout() const {
    auto file = readTextFile(options_.file).value_or("");
    return inputSourceId(shellAssignment(file, "XKBLAYOUT").value_or(""),
                         shellAssignment(file, "XKBVARIANT").value_or(""));
}

SystemKeyboard::~SystemKeyboard() = default;

#ifdef ZELVO_XCB

std::optional<std::string> SystemKeyboard::xServerLayout() {
    if (options_.display.empty())
        return std::nullopt;
    if (!xServer_) {
        xServer_ = std::make_unique<XServerKeyboard>(options_.display);
        if (!xServer_->isConnected())
            return std::nullopt;
        xNotices_ =
            std::make_unique<QSocketNotifier>(xServer_->descriptor(), QSocketNotifier::Read);
        QObject::connect(xNotices_.get(), &QSocketNotifier::activated, xNotices_.get(), [this] {
            if (xServer_->takeNotices())
                changed_();
            xNotices_->setEnabled(xServer_->isConnected());
        });
    }
    auto layout = xServer_->inputSource();
    // A notice that came with the answers is no longer there to wake this thread.
    if (xServer_->takeNotices())
        changed_();
    return layout;
}

#else

std::optional<std::string> SystemKeyboard::xServerLayout() {
    return std::nullopt;
}

#endif

}  // namespace zelvo::platform
