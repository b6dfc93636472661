#include "platform/linux/desktop/DesktopSettingsMirror.h"

#include <utility>

#include "platform/Bundle.h"
#include "platform/PropertyListReader.h"
#include "platform/linux/base/ThreadQueue.h"
#include "platform/linux/desktop/GnomeSettings.h"
#include "platform/linux/desktop/KdeSettings.h"
#include "platform/linux/desktop/KeyCombinations.h"
#include "platform/linux/desktop/SystemKeyboard.h"

namespace zelvo::platform {

namespace {

/// One change of the user's is often several of the desktop's.
constexpr guint settlingMilliseconds = 100;

std::string preferencesFolder(const Bundle& bundle) {
    auto library = bundle.userLibraryDirectory();
    return library ? *library + "/Preferences" : std::string();
}

}  // namespace

/// What both threads have of the thread's loop.
struct DesktopSettingsMirror::Loop {
    std::unique_ptr<GMainContext, decltype(&g_main_context_unref)> context{g_main_context_new(),
                                                                           g_main_context_unref};
    GObjectPointer<GCancellable> cancellable{g_cancellable_new()};
};

/// What the thread has.
class DesktopSettingsMirror::Worker {
  public:
    explicit Worker(DesktopSettingsMirror& mirror)
        : mirror_(mirror),
          keyboard_({.display = mirror.options_.display,
                     .bus = mirror.options_.systemBus,
                     .file = mirror.options_.keyboardFile},
                    mirror.loop_->cancellable.get(), [this] { changed(); }) {
        auto desktops = ":" + mirror.options_.desktop + ":";
        auto has = [&](const char* name) {
            return desktops.find(":" + std::string(name) + ":") != desktops.npos;
        };
        // These two are GNOME's relatives with another window manager.
        if (has("GNOME") && !has("Budgie") && !has("GNOME-Flashback"))
            desktop_ = std::make_unique<GnomeSettings>([this] { changed(); });
        else if (has("KDE"))
            desktop_ = std::make_unique<KdeSettings>(
                mirror.options_.configHome, mirror.options_.sessionBus,
                mirror.loop_->cancellable.get(), [this] { changed(); });
    }

    void run() {
        read();
        while (!mirror_.isEnding_)
            g_main_context_iteration(mirror_.loop_->context.get(), TRUE);
    }

  private:
    void changed() {
        if (settling_)
            return;
        settling_.reset(g_timeout_source_new(settlingMilliseconds));
        auto settled = [](gpointer self) -> gboolean {
            auto& worker = *static_cast<Worker*>(self);
            worker.settling_.reset();
            worker.read();
            return G_SOURCE_REMOVE;
        };
        g_source_set_callback(settling_.get(), settled, this, nullptr);
        g_source_attach(settling_.get(), mirror_.loop_->context.get());
    }

    void read() {
        auto inputSource = desktop_ ? desktop_->inputSource() : std::nullopt;
        if (!inputSource)
            inputSource = keyboard_.inputSource();
        auto table = mirror_.reader_.dictionaryWithContentsOfFile(mirror_.keyboardTableFile_);
        KeyCombinations combinations(table.value_or(PropertyList::Dictionary()),
                                     inputSource.value_or(""));
        // A desktop that is not known has no hot keys to tell of.
        mirror_.preferences_.write(desktop_ ? desktop_->settings(combinations) : DesktopSettings());
        mirror_.publish(std::move(inputSource));
    }

    DesktopSettingsMirror& mirror_;
    SystemKeyboard keyboard_;
    /// Null for a desktop that is not known.
    std::unique_ptr<DesktopReader> desktop_;
    /// Runs while a change waits to be read.
    GSourcePointer settling_;
};

DesktopSettingsMirror::DesktopSettingsMirror(Options options, const Bundle& bundle,
                                             const PropertyListReader& reader, Log& log)
    : options_(std::move(options)),
      keyboardTableFile_(bundle.resourcePath() + "/KeycodeToKeysym.plist"),
      reader_(reader),
      preferences_(preferencesFolder(bundle), log),
      loop_(std::make_unique<Loop>()),
      thread_([this] {
          blockSignals();
          g_main_context_push_thread_default(loop_->context.get());
          Worker(*this).run();
          g_main_context_pop_thread_default(loop_->context.get());
      }) {}

DesktopSettingsMirror::~DesktopSettingsMirror() {
    isEnding_ = true;
    g_cancellable_cancel(loop_->cancellable.get());
    g_main_context_wakeup(loop_->context.get());
    thread_.join();
}

std::optional<std::string> DesktopSettingsMirror::currentKeyboardInputSourceId() const {
    std::unique_lock lock(mutex_);
    published_.wait_for(lock, options_.patience, [this] { return hasRead_; });
    return inputSource_;
}

void DesktopSettingsMirror::publish(std::optional<std::string> inputSource) {
    {
        std::lock_guard lock(mutex_);
        inputSource_ = std::move(inputSource);
        hasRead_ = true;
    }
    published_.notify_all();
}

}  // namespace zelvo::platform
