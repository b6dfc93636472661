#include "platform/linux/desktop/KdeSettings.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <algorithm>
#include <array>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/desktop/KdeConfig.h"
#include "platform/linux/desktop/KeyCombinations.h"

namespace zelvo::platform {

namespace {

using Settings = DesktopSettings;

constexpr const char* keyboardConnection = "zelvo-keyboard";
constexpr int keyboardTimeout = 300;

/// Index of the current layout; 0 where the service is not there.
std::size_t currentLayout(const std::string& busAddress) {
    auto bus =
        busAddress.empty()
            ? QDBusConnection::connectToBus(QDBusConnection::SessionBus, keyboardConnection)
            : QDBusConnection::connectToBus(QString::fromStdString(busAddress), keyboardConnection);
    auto question = QDBusMessage::createMethodCall("org.kde.keyboard", "/Layouts",
                                                   "org.kde.KeyboardLayouts", "getLayout");
    question.setAutoStartService(false);
    auto answer =
        bus.isConnected() ? bus.call(question, QDBus::Block, keyboardTimeout) : QDBusMessage();
    QDBusConnection::disconnectFromBus(keyboardConnection);
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0).toUInt() : 0;
}

std::optional<std::string> inputSource(const KdeConfig& config, const std::string& busAddress) {
    auto layouts = config.list("Layout", "LayoutList");
    // Without Use the layout is the system's.
    if (config.entry("Layout", "Use") != "true" || layouts.empty())
        return std::nullopt;
    auto variants = config.list("Layout", "VariantList");
    variants.resize(layouts.size());
    auto index = layouts.size() > 1 ? currentLayout(busAddress) : 0;
    if (index >= layouts.size())
        index = 0;
    auto layout = trimmed(layouts[index]);
    auto variant = trimmed(variants[index]);
    if (layout.empty())
        return std::nullopt;
    return variant.empty() ? layout : layout + "+" + variant;
}

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

DesktopSettings readKdeSettings(const std::string& configHome, const std::string& busAddress,
                                const KeyCombinations& combinations) {
    Settings settings;
    settings.inputSource = inputSource(KdeConfig::ofFile(configHome + "/kxkbrc"), busAddress);
    auto shortcuts = KdeConfig::ofFile(configHome + "/kglobalshortcutsrc");
    for (const auto& action : actions) {
        if (auto hotKey = shortcut(shortcuts, action.group, action.name, combinations))
            settings.hotKeys.emplace(action.id, *hotKey);
    }
    auto windowManager = KdeConfig::ofFile(configHome + "/kwinrc");
    for (const auto& corner : corners) {
        if (auto action = cornerAction(windowManager, corner))
            settings.corners.emplace(corner.name, *action);
    }
    return settings;
}

}  // namespace zelvo::platform
