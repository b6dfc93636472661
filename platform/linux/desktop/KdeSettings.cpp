#include "platform/linux/desktop/KdeSettings.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/desktop/InputSourceId.h"
#include "platform/linux/desktop/KdeConfig.h"
#include "platform/linux/desktop/KeyCombinations.h"
#include "platform/linux/desktop/MessageBus.h"

namespace zelvo::platform {

namespace {

using Settings = DesktopSettings;

constexpr BusCall layoutQuestion{"org.kde.keyboard", "/Layouts", "org.kde.KeyboardLayouts",
                                 "getLayout"};
constexpr const char* layoutsFile = "kxkbrc";
constexpr const char* shortcutsFile = "kglobalshortcutsrc";
constexpr const char* windowManagerFile = "kwinrc";

/// The first of the action's combinations that has an equivalent.
std::optional<HotKey> shortcut(const KdeConfig& config, const std::string& group,
                               const std::string& action, const KeyCombinations& combinations) {
    // The combinations parted by tabs, those by default, the action's name.
    auto parts = config.list(group, action);
    auto texts = parts.empty() ? std::string() : parts[0];
    while (!texts.empty()) {
        auto end = std::min(texts.find('\t'), texts.size());
        if (auto hotKey = combinations.fromQt(trimmed(texts.substr(0, end))))
            return hotKey;
        texts.erase(0, end + 1);
    }
    return std::nullopt;
}

struct Action {
    Settings::HotKeyId id;
    const char* group;
    const char* name;
};

/// Of several for one number the first that is set.
constexpr std::array<Action, 9> actions{{
    {Settings::AllWindows, "kwin", "Overview"},
    {Settings::AllWindows, "kwin", "ExposeAll"},
    {Settings::AllWindows, "kwin", "Expose"},
    {Settings::ApplicationWindows, "kwin", "ExposeClass"},
    {Settings::Left, "kwin", "Switch One Desktop to the Left"},
    {Settings::Right, "kwin", "Switch One Desktop to the Right"},
    {Settings::Search, "org.kde.krunner.desktop", "_launch"},
    {Settings::Search, "services][org.kde.krunner.desktop", "_launch"},
    {Settings::Search, "krunner.desktop", "_launch"},
}};

struct EffectCorner {
    const char* group;
    const char* key;
    Settings::CornerAction action;
};

constexpr std::array<EffectCorner, 6> effects{{
    {"Effect-overview", "BorderActivate", Settings::ShowAllWindows},
    {"Effect-windowview", "BorderActivateAll", Settings::ShowAllWindows},
    {"Effect-windowview", "BorderActivate", Settings::ShowAllWindows},
    {"Effect-windowview", "BorderActivateClass", Settings::ShowApplicationWindows},
    {"Effect-presentwindows", "BorderActivateAll", Settings::ShowAllWindows},
    {"Effect-presentwindows", "BorderActivateClass", Settings::ShowApplicationWindows},
}};

/// KWin's numbers of the borders that are corners, and their names among its actions.
struct Corner {
    const char* name;
    const char* number;
    const char* border;
};

constexpr std::array<Corner, 4> corners{{
    {"tl", "7", "TopLeft"},
    {"tr", "1", "TopRight"},
    {"bl", "5", "BottomLeft"},
    {"br", "3", "BottomRight"},
}};

std::optional<Settings::CornerAction> cornerAction(const KdeConfig& config, const Corner& corner) {
    auto action = config.entry("ElectricBorders", corner.border).value_or("");
    if (action == "ShowDesktop")
        return Settings::ShowDesktop;
    if (action == "LockScreen")
        return Settings::LockScreen;
    for (const auto& effect : effects) {
        auto numbers = config.list(effect.group, effect.key);
        if (std::find(numbers.begin(), numbers.end(), corner.number) != numbers.end())
            return effect.action;
    }
    return std::nullopt;
}

}  // namespace

KdeSettings::KdeSettings(std::string configHome, std::string busAddress,
                         std::function<void()> changed)
    : configHome_(std::move(configHome)),
      busAddress_(std::move(busAddress)),
      changed_(std::move(changed)),
      files_(configHome_, {layoutsFile, shortcutsFile, windowManagerFile}, changed_) {}

KdeSettings::~KdeSettings() = default;

std::optional<std::string> KdeSettings::inputSource() const {
    auto config = KdeConfig::ofFile(file(layoutsFile));
    // Without Use the layout is the system's.
    if (config.entry("Layout", "Use") != "true")
        return std::nullopt;
    auto layouts = config.entry("Layout", "LayoutList").value_or("");
    auto isOneOfSeveral = layouts.find(',') != layouts.npos;
    return inputSourceId(layouts, config.entry("Layout", "VariantList").value_or(""),
                         isOneOfSeveral ? currentLayout() : 0);
}

std::size_t KdeSettings::currentLayout() const {
    if (!bus_ || !bus_->isConnected()) {
        bus_ = std::make_unique<MessageBus>(MessageBus::Kind::Session, busAddress_, changed_);
        if (!bus_->isConnected())
            return 0;
        bus_->follow(layoutQuestion);
    }
    return bus_->ask<uint>(layoutQuestion).value_or(0);
}

std::optional<DesktopSettings> KdeSettings::settings(const KeyCombinations& combinations) const {
    Settings settings;
    auto shortcuts = KdeConfig::ofFile(file(shortcutsFile));
    for (const auto& action : actions) {
        if (auto hotKey = shortcut(shortcuts, action.group, action.name, combinations))
            settings.hotKeys.emplace(action.id, *hotKey);
    }
    auto windowManager = KdeConfig::ofFile(file(windowManagerFile));
    for (const auto& corner : corners) {
        if (auto action = cornerAction(windowManager, corner))
            settings.corners.emplace(corner.name, *action);
    }
    return settings;
}

}  // namespace zelvo::platform
