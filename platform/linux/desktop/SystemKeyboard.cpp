#include "platform/linux/desktop/SystemKeyboard.h"

#include <glib-unix.h>

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

std::string text(GVariant* properties, const char* name) {
    const char* value = nullptr;
    return g_variant_lookup(properties, name, "&s", &value) ? value : "";
}

}  // namespace

SystemKeyboard::SystemKeyboard(Options options, GCancellable* cancellable,
                               std::function<void()> changed)
    : options_(std::move(options)), cancellable_(cancellable), changed_(std::move(changed)) {}

std::optional<std::string> SystemKeyboard::inputSource() {
    if (auto layout = xServerLayout())
        return layout;
    if (auto layout = localeServiceLayout())
        return layout;
    return fileLayout();
}

std::optional<std::string> SystemKeyboard::localeServiceLayout() const {
    auto bus = connectToBus(G_BUS_TYPE_SYSTEM, options_.bus, cancellable_);
    // What it would say once started, the keyboard's file says at once.
    auto answer =
        bus ? callOnBus(bus.get(), localeQuestion, g_variant_new("(s)", localeQuestion.service),
                        "(a{sv})", cancellable_)
            : nullptr;
    if (!answer)
        return std::nullopt;
    GVariantPointer properties(g_variant_get_child_value(answer.get(), 0));
    return inputSourceId(text(properties.get(), "X11Layout"), text(properties.get(), "X11Variant"));
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
        xNotices_.reset(g_unix_fd_source_new(xServer_->descriptor(), G_IO_IN));
        auto notice = [](int, GIOCondition, gpointer self) -> gboolean {
            auto& keyboard = *static_cast<SystemKeyboard*>(self);
            if (keyboard.xServer_->takeNotices())
                keyboard.changed_();
            return keyboard.xServer_->isConnected() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
        };
        g_source_set_callback(xNotices_.get(),
                              G_SOURCE_FUNC(static_cast<GUnixFDSourceFunc>(notice)), this, nullptr);
        g_source_attach(xNotices_.get(), g_main_context_get_thread_default());
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
