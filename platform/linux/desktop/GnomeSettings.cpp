#include "platform/linux/desktop/GnomeSettings.h"

#include <unistd.h>

#include <QLibrary>
#include <array>
#include <utility>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/desktop/KeyCombinations.h"
#include "platform/linux/desktop/SettingsStore.h"

namespace zelvo::platform {

namespace {

using Settings = DesktopSettings;

constexpr const char* inputSources = "org.gnome.desktop.input-sources";
constexpr const char* desktopInterface = "org.gnome.desktop.interface";
constexpr const char* windowKeys = "org.gnome.desktop.wm.keybindings";
constexpr const char* shellKeys = "org.gnome.shell.keybindings";
constexpr const char* mediaKeys = "org.gnome.settings-daemon.plugins.media-keys";
constexpr const char* windowManager = "org.gnome.mutter";

struct Binding {
    Settings::HotKeyId id;
    const char* schema;
    const char* key;
};

constexpr std::array<Binding, 6> bindings{{
    {Settings::AllWindows, shellKeys, "toggle-overview"},
    {Settings::ApplicationWindows, windowKeys, "switch-group"},
    {Settings::Left, windowKeys, "switch-to-workspace-left"},
    {Settings::Right, windowKeys, "switch-to-workspace-right"},
    {Settings::Search, mediaKeys, "search"},
    // The key on which the overview is, alone: usually a modifier, which is no combination.
    {Settings::AllWindows, windowManager, "overlay-key"},
}};

bool contains(const std::vector<std::string>& pairs, const std::string& first,
              const std::string& second) {
    for (std::size_t i = 0; i + 1 < pairs.size(); i += 2) {
        if (pairs[i] == first && pairs[i + 1] == second)
            return true;
    }
    return false;
}

/// Beside the program where both were built, else where both are installed.
std::string placeOfModule(const std::string& programFolder) {
    constexpr const char* name = "/zelvo-gsettings.so";
    auto built = programFolder + name;
    return ::access(built.c_str(), F_OK) == 0 ? built : programFolder + "/" ZELVO_MODULES + name;
}

}  // namespace

std::unique_ptr<GnomeSettings> GnomeSettings::open(const std::string& programFolder, Log& log,
                                                   std::function<void()> changed) {
    QLibrary module(QString::fromStdString(placeOfModule(programFolder)));
    // The library below registers types, which cannot be taken back.
    module.setLoadHints(QLibrary::PreventUnloadHint | QLibrary::ResolveAllSymbolsHint);
    auto* make = reinterpret_cast<MakeSettingsStore*>(module.resolve(makeSettingsStore));
    std::unique_ptr<SettingsStore> store(make ? make({inputSources, desktopInterface, windowKeys,
                                                      shellKeys, mediaKeys, windowManager},
                                                     std::move(changed))
                                              : nullptr);
    if (!store) {
        auto reason = make ? "Qt runs without GLib" : module.errorString().toStdString();
        log.line("Desktop: GNOME's settings cannot be read: " + reason);
        return nullptr;
    }
    return std::unique_ptr<GnomeSettings>(new GnomeSettings(std::move(store)));
}

GnomeSettings::GnomeSettings(std::unique_ptr<SettingsStore> store) : store_(std::move(store)) {}

std::optional<std::string> GnomeSettings::inputSource() const {
    // Each a kind and a name.
    auto all = store_->texts(inputSources, "sources");
    if (all.size() < 2)
        return std::nullopt;
    auto kind = all[0];
    auto name = all[1];
    auto used = store_->texts(inputSources, "mru-sources");
    for (std::size_t i = 0; i + 1 < used.size(); i += 2) {
        if (contains(all, used[i], used[i + 1])) {
            kind = used[i];
            name = used[i + 1];
            break;
        }
    }
    if (kind != "xkb" || name.empty())
        return std::nullopt;
    return name;
}

std::optional<DesktopSettings> GnomeSettings::settings(const KeyCombinations& combinations) const {
    if (!store_->hasSchema(windowKeys))
        return std::nullopt;
    Settings settings;
    for (const auto& [id, schema, key] : bindings) {
        for (const auto& text : store_->texts(schema, key)) {
            if (auto hotKey = combinations.fromGtk(text)) {
                settings.hotKeys.emplace(id, *hotKey);
                break;
            }
        }
    }
    if (store_->texts(desktopInterface, "enable-hot-corners") == std::vector<std::string>{"true"})
        settings.corners.emplace("tl", Settings::ShowAllWindows);
    return settings;
}

}  // namespace zelvo::platform
