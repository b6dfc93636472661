#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/TextInputSources.h"
#include "platform/linux/desktop/DesktopPreferences.h"

namespace zelvo::platform {

class Bundle;
class PropertyListReader;

/// Keeps what the desktop says of hot keys and screen corners in the user's preference files, and
/// the keyboard's input source at hand, from its construction to its destruction. A thread of its
/// own reads and writes them, at once and within a second of each change. Needs the application
/// object, whose event loop need not run.
///
/// The input source is the desktop's, else that of the X server, of the system's locale service or
/// of the system's file.
class DesktopSettingsMirror : public TextInputSources {
  public:
    struct Options {
        /// XDG_CURRENT_DESKTOP, names parted by colons.
        std::string desktop;
        /// DISPLAY; empty under Wayland, whose compositor tells X programs only a layout to start
        /// with.
        std::string display;
        std::string configHome;
        /// Addresses of the message buses; empty for the session's and the system's.
        std::string sessionBus{};
        std::string systemBus{};
        std::string keyboardFile = "/etc/default/keyboard";
        /// By which modules are found; empty for the application's own.
        std::string programFolder{};
        /// How long the first question waits for the first reading.
        std::chrono::milliseconds patience{100};
    };

    /// The reader and the log outlive this object.
    DesktopSettingsMirror(Options options, const Bundle& bundle, const PropertyListReader& reader,
                          Log& log);
    DesktopSettingsMirror(const DesktopSettingsMirror&) = delete;
    DesktopSettingsMirror& operator=(const DesktopSettingsMirror&) = delete;
    /// Ends the thread; services that do not answer are not waited for.
    ~DesktopSettingsMirror() override;

    /// What was read last. Waits, for as long as the options say, only while nothing has been read
    /// yet: who asks so early describes the host for as long as its link lives. None then, where
    /// the reading takes longer.
    std::optional<std::string> currentKeyboardInputSourceId() const override;

  private:
    class Thread;
    class Worker;

    void publish(std::optional<std::string> inputSource);

    const Options options_;
    const std::string keyboardTableFile_;
    const PropertyListReader& reader_;
    Log& log_;
    DesktopPreferences preferences_;

    mutable std::mutex mutex_;
    mutable std::condition_variable published_;
    bool hasRead_ = false;
    std::optional<std::string> inputSource_;

    /// Last, so that it ends first.
    std::unique_ptr<Thread> thread_;
};

}  // namespace zelvo::platform
