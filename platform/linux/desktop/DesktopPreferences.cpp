#include "platform/linux/desktop/DesktopPreferences.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/Log.h"
#include "platform/linux/base/Debug.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

/// Tells a file of ours from one that somebody has put there.
constexpr const char* writtenHere = "<!-- Written by Zelvo from the desktop's settings. -->";
constexpr std::int32_t noCharacter = 65535;
constexpr std::int32_t spaceBar = 49;

std::string integer(std::int32_t value) {
    return "<integer>" + std::to_string(value) + "</integer>";
}

std::string document(const std::string& members) {
    return std::string(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
)") + writtenHere +
           "\n<plist version=\"1.0\">\n<dict>\n" + members + "</dict>\n</plist>\n";
}

std::optional<std::string> hotKeyFile(const DesktopSettings& settings) {
    if (settings.hotKeys.empty())
        return std::nullopt;
    std::string hotKeys;
    for (const auto& [id, hotKey] : settings.hotKeys) {
        // Readers look a character up as if it were a key code, all but the space.
        auto character = hotKey.keyCode == spaceBar ? ' ' : noCharacter;
        hotKeys += "<key>" + std::to_string(id) +
                   "</key><dict><key>enabled</key><true/><key>value</key><dict>"
                   "<key>parameters</key><array>" +
                   integer(character) + integer(hotKey.keyCode) + integer(hotKey.flags) +
                   "</array><key>type</key><string>standard</string></dict></dict>\n";
    }
    return document("<key>AppleSymbolicHotKeys</key>\n<dict>\n" + hotKeys + "</dict>\n");
}

std::optional<std::string> cornerFile(const DesktopSettings& settings) {
    if (settings.corners.empty())
        return std::nullopt;
    std::string members;
    for (const auto& [corner, action] : settings.corners) {
        // No desktop here asks for modifiers with a corner.
        members += "<key>wvous-" + corner + "-corner</key>" + integer(action) + "<key>wvous-" +
                   corner + "-modifier</key>" + integer(0) + "\n";
    }
    return document(members);
}

/// 0, else the error's number.
int replaceFile(const std::string& path, const std::string& content) {
    auto name = path + ".XXXXXX";
    FileDescriptor file(::mkostemp(name.data(), O_CLOEXEC));
    if (!file)
        return errno;
    auto count = ::write(file.get(), content.data(), content.size());
    int error = count < 0 ? errno : static_cast<std::size_t>(count) < content.size() ? ENOSPC : 0;
    if (error == 0 && ::rename(name.c_str(), path.c_str()) != 0)
        error = errno;
    if (error != 0)
        ::unlink(name.c_str());
    return error;
}

}  // namespace

DesktopPreferences::DesktopPreferences(std::string folder, Log& log)
    : folder_(std::move(folder)), log_(log) {}

void DesktopPreferences::write(const std::optional<DesktopSettings>& settings) {
    if (folder_.empty())
        return;
    replace("com.apple.symbolichotkeys.plist", settings ? hotKeyFile(*settings) : std::nullopt,
            settings.has_value());
    replace("com.apple.dock.plist", settings ? cornerFile(*settings) : std::nullopt,
            settings.has_value());
}

void DesktopPreferences::replace(const std::string& name, const std::optional<std::string>& content,
                                 bool isKnownDesktop) {
    auto path = folder_ + "/" + name;
    auto present = readTextFile(path);
    if (present == content)
        return;
    debug("desktop", (content ? "writes " : "has nothing for ") + name);
    if (!content) {
        if (isKnownDesktop || present->find(writtenHere) != present->npos)
            ::unlink(path.c_str());
        return;
    }
    std::error_code folderError;
    std::filesystem::create_directories(folder_, folderError);
    if (int error = folderError ? folderError.value() : replaceFile(path, *content); error != 0)
        log_.line("Preferences: cannot write " + path + ": " +
                  std::generic_category().message(error));
}

}  // namespace zelvo::platform
