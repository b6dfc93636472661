#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// What the process environment tells the application, read once. Value type.
struct Environment {
    /// Origin of the sharing service, without a slash at the end; empty where ZELVO_SERVICE is
    /// refused.
    std::string serviceOrigin;
    /// ZELVO_ROUTER, "address" or "address:port"; empty for the gateway of the default route.
    std::string router;
    /// Folder of "/Library/..." and "/System/...", without a slash at the end.
    std::string systemRoot;
    /// ZELVO_AUTHORIZATION is "self": tools start as the user itself.
    bool authorizesItself = false;
    /// SSL_CERT_FILE: the file of the certificate authorities that are trusted; empty for the
    /// system's own.
    std::string certificateFile;
    /// The user's folders by the XDG base directory standard, without a slash at the end; empty
    /// without a home folder.
    std::string home;
    std::string configHome;
    std::string dataHome;
    std::string stateHome;
    /// Of this login; also where nothing in the environment names it.
    std::string runtimeFolder;
    /// XDG_CURRENT_DESKTOP.
    std::string desktop;
    /// DISPLAY of an X session; empty in a Wayland one.
    std::string xDisplay;
    /// Locale names for messages, the best first, such as "zh_CN.UTF-8".
    std::vector<std::string> languages;
    /// One line of text for everything above that could not be used.
    std::vector<std::string> complaints;
    /// A sentence for each of ZELVO_SERVICE and ZELVO_ROUTER that is set, and empty or malformed.
    /// With any, the application must not start: whoever sets them means to keep it from asking the
    /// real service and the real router.
    std::vector<std::string> refusals;

    using Lookup = std::function<std::optional<std::string>(const char* name)>;

    static Environment ofProcess();
    static Environment from(const Lookup& lookup);
};

}  // namespace zelvo::platform
