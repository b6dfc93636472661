#include "platform/linux/desktop/DesktopPreferences.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/Log.h"
#include "platform/linux/base/Debug.h"
#include "platform/linux/base/FileReading.h"
#include "platform/linux/files/FileReplacement.h"

namespace zelvo::platform {

namespace {

/// Tells a file of ours from one that somebody has put there.
constexpr const char* mark = "<!-- Written by Zelvo from the desktop's settings";
constexpr const char* advice =
    ", and replaced when those change; without this comment it is left alone. -->";
constexpr std::int32_t noCharacter = 65535;
constexpr std::int32_t spaceBar = 49;
/// A hot key that is on no key has this code, which the keyboard table turns into no keysym.
constexpr std::int32_t noKey = 65535;

std::string integer(std::int32_t value) {
    return "<integer>" + std::to_string(value) + "</integer>";
}

std::string document(const std::string& members) {
    return std::string(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
)") + mark +
           advice + "\n<plist version=\"1.0\">\n<dict>\n" + members + "</dict>\n</plist>\n";
}

std::string hotKeyEntry(DesktopSettings::HotKeyId id, const std::optional<HotKey>& bound) {
    auto hotKey = bound.value_or(HotKey{noKey, 0});
    // Readers look a character up as if it were a key code, all but the space.
    auto character = hotKey.keyCode == spaceBar ? ' ' : noCharacter;
    return "<key>" + std::to_string(id) + "</key><dict><key>enabled</key>" +
           (bound ? "<true/>" : "<false/>") + "<key>value</key><dict><key>parameters</key><array>" +
           integer(character) + integer(hotKey.keyCode) + integer(hotKey.flags) +
           "</array><key>type</key><string>standard</string></dict></dict>\n";
}

std::string hotKeyFile(const std::optional<DesktopSettings>& settings) {
    std::string entries;
    if (settings) {
        for (auto id : DesktopSettings::hotKeyIds) {
            auto bound = settings->hotKeys.find(id);
            entries += hotKeyEntry(
                id, bound == settings->hotKeys.end() ? std::nullopt : std::optional(bound->second));
        }
    }
    return document("<key>AppleSymbolicHotKeys</key>\n<dict>\n" + entries + "</dict>\n");
}

std::optional<std::string> cornerFile(const std::optional<DesktopSettings>& settings) {
    if (!settings || settings->corners.empty())
        return std::nullopt;
    std::string members;
    for (const auto& [corner, action] : settings->corners) {
        // No desktop here asks for modifiers with a corner.
        members += "<key>wvous-" + corner + "-corner</key>" + integer(action) + "<key>wvous-" +
                   corner + "-modifier</key>" + integer(0) + "\n";
    }
    return document(members);
}

/// What cannot be read is none of ours either.
bool isOurs(const std::string& path) {
    return readTextFile(path).value_or("").find(mark) != std::string::npos;
}

/// What went wrong, beginning with "cannot".
std::string put(const std::string& path, const std::string& content, bool replaces) {
    auto draft = path + ".zelvo";
    // Cut off by a power cut it would lack the mark, and be left alone for good.
    if (auto error = replaceFile(draft, content); !error.empty())
        return error;
    // A link does not replace what somebody has put there meanwhile.
    auto isDone = replaces ? ::rename(draft.c_str(), path.c_str()) == 0
                           : ::link(draft.c_str(), path.c_str()) == 0;
    int error = isDone || errno == EEXIST ? 0 : errno;
    ::unlink(draft.c_str());
    return error == 0 ? std::string()
                      : "cannot write " + path + ": " + std::generic_category().message(error);
}

}  // namespace

DesktopPreferences::DesktopPreferences(std::string folder, Log& log)
    : folder_(std::move(folder)), log_(log) {}

void DesktopPreferences::write(const std::optional<DesktopSettings>& settings) {
    if (folder_.empty())
        return;
    replace("com.apple.symbolichotkeys.plist", hotKeyFile(settings));
    replace("com.apple.dock.plist", cornerFile(settings));
}

void DesktopPreferences::replace(const std::string& name,
                                 const std::optional<std::string>& content) {
    auto path = folder_ + "/" + name;
    std::error_code ignored;
    auto isThere = std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
    if ((isThere && !isOurs(path)) || readTextFile(path) == content)
        return;
    debug("desktop", (content ? "writes " : "has nothing for ") + name);
    if (!content) {
        ::unlink(path.c_str());
        return;
    }
    if (auto error = put(path, *content, isThere); !error.empty())
        log_.line("Preferences: " + error);
}

}  // namespace zelvo::platform
