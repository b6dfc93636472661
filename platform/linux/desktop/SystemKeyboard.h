#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

class QSocketNotifier;

namespace zelvo::platform {

class XServerKeyboard;

/// The keyboard layout below the desktops: that of the X server, else of the system's locale
/// service while that runs, else of the system's keyboard file. Changes of the X server's are told
/// once it has been asked, as a DesktopReader tells them; the others change with a login.
class SystemKeyboard {
  public:
    struct Options {
        /// As in DISPLAY; empty for no X server.
        std::string display;
        /// Address of the system's message bus, or empty for the usual one.
        std::string bus;
        /// In the form of keyboard(5).
        std::string file;
    };

    SystemKeyboard(Options options, std::function<void()> changed);
    ~SystemKeyboard();

    /// Such as "us" or "de+nodeadkeys".
    std::optional<std::string> inputSource();

  private:
    std::optional<std::string> xServerLayout();
    std::optional<std::string> localeServiceLayout() const;
    std::optional<std::string> fileLayout() const;

    const Options options_;
    const std::function<void()> changed_;
    std::unique_ptr<XServerKeyboard> xServer_;
    std::unique_ptr<QSocketNotifier> xNotices_;
};

}  // namespace zelvo::platform
