#include "platform/linux/desktop/DesktopSettingsMirror.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>
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
constexpr std::chrono::milliseconds settlingTime(100);

std::string preferencesFolder(const Bundle& bundle) {
    auto library = bundle.userLibraryDirectory();
    return library ? *library + "/Preferences" : std::string();
}

/// Qt looks for it at the first question, which is for the main thread to ask.
DesktopSettingsMirror::Options withProgramFolder(DesktopSettingsMirror::Options options) {
    if (options.programFolder.empty())
        options.programFolder = QCoreApplication::applicationDirPath().toStdString();
    return options;
}

}  // namespace

/// What the thread has.
class DesktopSettingsMirror::Worker {
  public:
    explicit Worker(DesktopSettingsMirror& mirror)
        : mirror_(mirror),
          keyboard_({.display = mirror.options_.display,
                     .bus = mirror.options_.systemBus,
                     .file = mirror.options_.keyboardFile},
                    [this] { changed(); }) {
        settling_.setSingleShot(true);
        settling_.setInterval(settlingTime);
        QObject::connect(&settling_, &QTimer::timeout, &settling_, [this] { read(); });
        auto desktops = ":" + mirror.options_.desktop + ":";
        auto has = [&](const char* name) {
            return desktops.find(":" + std::string(name) + ":") != desktops.npos;
        };
        // These two are GNOME's relatives with another window manager.
        if (has("GNOME") && !has("Budgie") && !has("GNOME-Flashback"))
            desktop_ = GnomeSettings::open(mirror.options_.programFolder, mirror.log_,
                                           [this] { changed(); });
        else if (has("KDE"))
            desktop_ = std::make_unique<KdeSettings>(
                mirror.options_.configHome, mirror.options_.sessionBus, [this] { changed(); });
        read();
    }

  private:
    void changed() {
        if (!settling_.isActive())
            settling_.start();
    }

    void read() {
        // Who waits for a bus lets the timer run.
        if (isReading_)
            return changed();
        isReading_ = true;
        readOnce();
        isReading_ = false;
    }

    void readOnce() {
        auto inputSource = desktop_ ? desktop_->inputSource() : std::nullopt;
        if (!inputSource)
            inputSource = keyboard_.inputSource();
        // Then it may be that nobody waited for the answer.
        if (QThread::currentThread()->isInterruptionRequested())
            return;
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
    QTimer settling_;
    bool isReading_ = false;
};

class DesktopSettingsMirror::Thread : public QThread {
  public:
    explicit Thread(DesktopSettingsMirror& mirror) : mirror_(mirror) {
        setObjectName("desktop");
        start();
    }
    ~Thread() override {
        requestInterruption();
        quit();
        wait();
    }

  private:
    void run() override {
        platform::blockSignals();
        Worker worker(mirror_);
        exec();
    }

    DesktopSettingsMirror& mirror_;
};

DesktopSettingsMirror::DesktopSettingsMirror(Options options, const Bundle& bundle,
                                             const PropertyListReader& reader, Log& log)
    : options_(withProgramFolder(std::move(options))),
      keyboardTableFile_(bundle.resourcePath() + "/KeycodeToKeysym.plist"),
      reader_(reader),
      log_(log),
      preferences_(preferencesFolder(bundle), log),
      thread_(std::make_unique<Thread>(*this)) {}

DesktopSettingsMirror::~DesktopSettingsMirror() = default;

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
