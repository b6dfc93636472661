#include "platform/linux/desktop/GnomeSettings.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "platform/linux/desktop/KeyCombinations.h"

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

/// The texts of a string or of a list of strings.
std::vector<std::string> texts(GVariant* value) {
    std::vector<std::string> result;
    if (value && g_variant_is_of_type(value, G_VARIANT_TYPE_STRING))
        result.emplace_back(g_variant_get_string(value, nullptr));
    if (!value || !g_variant_is_of_type(value, G_VARIANT_TYPE_STRING_ARRAY))
        return result;
    for (std::size_t i = 0; i < g_variant_n_children(value); ++i) {
        GVariantPointer text(g_variant_get_child_value(value, i));
        result.emplace_back(g_variant_get_string(text.get(), nullptr));
    }
    return result;
}

using Source = std::pair<std::string, std::string>;

std::vector<Source> sources(GVariant* value) {
    std::vector<Source> result;
    if (!value || !g_variant_is_of_type(value, G_VARIANT_TYPE("a(ss)")))
        return result;
    for (std::size_t i = 0; i < g_variant_n_children(value); ++i) {
        const char* kind = nullptr;
        const char* name = nullptr;
        g_variant_get_child(value, i, "(&s&s)", &kind, &name);
        result.emplace_back(kind, name);
    }
    return result;
}

void settingChanged(GSettings*, const char*, const std::function<void()>* changed) {
    (*changed)();
}

}  // namespace

GnomeSettings::GnomeSettings(std::function<void()> changed) : changed_(std::move(changed)) {
    auto* source = g_settings_schema_source_get_default();
    if (!source)
        return;
    for (const auto* name :
         {inputSources, desktopInterface, windowKeys, shellKeys, mediaKeys, windowManager}) {
        // The library ends the process that asks for a schema which is not there.
        auto* schema = g_settings_schema_source_lookup(source, name, TRUE);
        if (!schema)
            continue;
        auto* settings = g_settings_new_full(schema, nullptr, nullptr);
        g_settings_schema_unref(schema);
        g_signal_connect(settings, "changed", G_CALLBACK(settingChanged),
                         const_cast<std::function<void()>*>(&changed_));
        schemas_.emplace(name, settings);
    }
}

std::optional<std::string> GnomeSettings::inputSource() const {
    auto all = sources(value(inputSources, "sources").get());
    if (all.empty())
        return std::nullopt;
    auto current = all[0];
    for (const auto& used : sources(value(inputSources, "mru-sources").get())) {
        if (std::find(all.begin(), all.end(), used) != all.end()) {
            current = used;
            break;
        }
    }
    if (current.first != "xkb" || current.second.empty())
        return std::nullopt;
    return current.second;
}

std::optional<DesktopSettings> GnomeSettings::settings(const KeyCombinations& combinations) const {
    if (!schemas_.contains(windowKeys))
        return std::nullopt;
    Settings settings;
    for (const auto& [id, schema, key] : bindings) {
        for (const auto& text : texts(value(schema, key).get())) {
            if (auto hotKey = combinations.fromGtk(text)) {
                settings.hotKeys.emplace(id, *hotKey);
                break;
            }
        }
    }
    auto corner = value(desktopInterface, "enable-hot-corners");
    if (corner && g_variant_is_of_type(corner.get(), G_VARIANT_TYPE_BOOLEAN) &&
        g_variant_get_boolean(corner.get()))
        settings.corners.emplace("tl", Settings::ShowAllWindows);
    return settings;
}

GVariantPointer GnomeSettings::value(const std::string& schema, const char* key) const {
    auto found = schemas_.find(schema);
    if (found == schemas_.end())
        return nullptr;
    GSettingsSchema* description = nullptr;
    g_object_get(found->second.get(), "settings-schema", &description, nullptr);
    auto isThere = g_settings_schema_has_key(description, key);
    g_settings_schema_unref(description);
    return GVariantPointer(isThere ? g_settings_get_value(found->second.get(), key) : nullptr);
}

}  // namespace zelvo::platform
