#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/TextInputSources.h"
#include "platform/linux/desktop/DesktopPreferences.h"
#include "platform/linux/desktop/KeyboardFileInputSources.h"

namespace zelvo::platform {

class Bundle;
class PropertyListReader;

/// The keyboard as the desktop has it, else as the X server, the system's locale service or the
/// system's file have it.
class DesktopInputSources : public TextInputSources {
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
    };

    /// All outlive this object.
    DesktopInputSources(Options options, const Bundle& bundle, const PropertyListReader& reader,
                        Log& log);

    /// Reads the desktop's settings and brings the preference files of hot keys and screen corners
    /// up to date before it answers: whoever asks is about to describe the host. Waits at most
    /// about half a second for services that do not answer.
    std::optional<std::string> currentKeyboardInputSourceId() const override;

  private:
    enum class Desktop : std::uint8_t { Gnome, Kde };

    std::optional<Desktop> knownDesktop() const;
    /// None where the desktop did not answer.
    std::optional<DesktopSettings> desktopSettings(Desktop desktop) const;
    std::optional<std::string> localeServiceLayout() const;

    const Options options_;
    const Bundle& bundle_;
    const PropertyListReader& reader_;
    mutable DesktopPreferences preferences_;
    KeyboardFileInputSources file_;
};

}  // namespace zelvo::platform
