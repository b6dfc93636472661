#include "platform/linux/desktop/GnomeSettings.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/base/ProgramOutput.h"
#include "platform/linux/desktop/KeyCombinations.h"

namespace zelvo::platform {

namespace {

using Settings = DesktopSettings;

constexpr std::chrono::milliseconds gsettingsLimit{300};
constexpr const char* sourcesSchema = "org.gnome.desktop.input-sources ";

/// The value behind "schema key ", as text; empty where there is none.
std::string_view valueOf(std::string_view listing, const std::string& setting) {
    while (!listing.empty()) {
        auto end = std::min(listing.find('\n'), listing.size());
        auto line = listing.substr(0, end);
        if (line.starts_with(setting + " "))
            return line.substr(setting.size() + 1);
        listing.remove_prefix(std::min(end + 1, listing.size()));
    }
    return {};
}

/// The strings of a value in GVariant's text form, in which the depth of lists and pairs is lost.
std::vector<std::string> strings(std::string_view value) {
    std::vector<std::string> result;
    for (std::size_t i = 0; i < value.size(); ++i) {
        auto quote = value[i];
        if (quote != '\'' && quote != '"')
            continue;
        std::string text;
        for (++i; i < value.size() && value[i] != quote; ++i) {
            if (value[i] == '\\' && i + 1 < value.size())
                ++i;
            text += value[i];
        }
        if (i < value.size())
            result.push_back(std::move(text));
    }
    return result;
}

using Source = std::pair<std::string, std::string>;

std::vector<Source> sources(std::string_view listing, const char* key) {
    auto texts = strings(valueOf(listing, std::string(sourcesSchema) + key));
    std::vector<Source> result;
    for (std::size_t i = 0; i + 1 < texts.size(); i += 2)
        result.emplace_back(texts[i], texts[i + 1]);
    return result;
}

/// The one used last, as far as it is still among the sources. An input method is no layout.
std::optional<std::string> inputSource(std::string_view listing) {
    auto all = sources(listing, "sources");
    if (all.empty())
        return std::nullopt;
    auto current = all[0];
    for (const auto& used : sources(listing, "mru-sources")) {
        if (std::find(all.begin(), all.end(), used) != all.end()) {
            current = used;
            break;
        }
    }
    if (current.first != "xkb" || current.second.empty())
        return std::nullopt;
    return current.second;
}

/// The first combination that has an equivalent.
std::optional<HotKey> binding(std::string_view listing, const char* setting,
                              const KeyCombinations& combinations) {
    for (const auto& text : strings(valueOf(listing, setting))) {
        if (auto hotKey = combinations.fromGtk(text))
            return hotKey;
    }
    return std::nullopt;
}

struct Binding {
    Settings::HotKeyId id;
    const char* setting;
};

constexpr std::array<Binding, 6> bindings{{
    {Settings::AllWindows, "org.gnome.shell.keybindings toggle-overview"},
    {Settings::ApplicationWindows, "org.gnome.desktop.wm.keybindings switch-group"},
    {Settings::Left, "org.gnome.desktop.wm.keybindings switch-to-workspace-left"},
    {Settings::Right, "org.gnome.desktop.wm.keybindings switch-to-workspace-right"},
    {Settings::Search, "org.gnome.settings-daemon.plugins.media-keys search"},
    // The key on which the overview is, alone: usually a modifier, which is no combination.
    {Settings::AllWindows, "org.gnome.mutter overlay-key"},
}};

}  // namespace

std::optional<DesktopSettings> readGnomeSettings(const KeyCombinations& combinations) {
    auto listing = programOutput({"gsettings", "list-recursively"}, gsettingsLimit);
    if (!listing)
        return std::nullopt;
    return gnomeSettingsOf(*listing, combinations);
}

DesktopSettings gnomeSettingsOf(std::string_view listing, const KeyCombinations& combinations) {
    Settings settings;
    settings.inputSource = inputSource(listing);
    for (const auto& [id, setting] : bindings) {
        if (auto hotKey = binding(listing, setting, combinations))
            settings.hotKeys.emplace(id, *hotKey);
    }
    if (valueOf(listing, "org.gnome.desktop.interface enable-hot-corners") == "true")
        settings.corners.emplace("tl", Settings::ShowAllWindows);
    return settings;
}

}  // namespace zelvo::platform
