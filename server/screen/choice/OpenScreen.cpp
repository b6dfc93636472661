#include "server/screen/choice/OpenScreen.h"

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "server/screen/choice/ScreenModule.h"
#include "server/screen/x11/X11Screen.h"

namespace zelvo::server {

namespace {

/// In the order in which they are asked. What the compositor itself offers comes before its portal:
/// portals of such desktops show the screen and take no input.
constexpr std::array waylandModules{"screen-wlroots.so", "screen-portal.so"};

std::unique_ptr<ScreenOpening> failed(const char* word, const char* sentence) {
    return std::make_unique<OpenedAtOnce>(ScreenResult{nullptr, word, sentence});
}

std::unique_ptr<ScreenOpening> openModule(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        return nullptr;
    // For good: what it made lives in there.
    void* module = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* entry = module ? ::dlsym(module, openScreenModule) : nullptr;
    if (!entry) {
        std::fprintf(stderr, "screensharingd: %s\n", ::dlerror());
        return nullptr;
    }
    std::unique_ptr<ScreenOpening> opening;
    reinterpret_cast<OpenScreenModule>(entry)(opening);
    return opening;
}

std::unique_ptr<ScreenOpening> openWayland() {
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const auto* module : waylandModules) {
        if (auto opening = openModule(folder / module))
            return opening;
    }
    return failed("wayland-no-server", "Nothing here can show the desktop of a Wayland session.");
}

bool isSet(const char* variable) {
    const char* value = std::getenv(variable);
    return value && *value;
}

}  // namespace

std::unique_ptr<ScreenOpening> openScreen() {
    if (isSet("WAYLAND_DISPLAY"))
        return openWayland();
    if (!isSet("DISPLAY"))
        return failed("no-display", "There is no display to share (DISPLAY is not set).");
    auto display = std::make_unique<X11Connection>("");
    switch (display->problem()) {
        case X11Connection::Problem::Refused:
            return failed("display-refused", "The X display cannot be opened.");
        case X11Connection::Problem::NotUsable:
            return failed("server-failed", "The X display lacks what showing it needs.");
        case X11Connection::Problem::Xwayland:
            // Shows the windows of X programs, and not the desktop.
            return openWayland();
        case X11Connection::Problem::None:
            break;
    }
    return std::make_unique<OpenedAtOnce>(
        ScreenResult{std::make_unique<X11Screen>(std::move(display)), {}, {}});
}

}  // namespace zelvo::server
