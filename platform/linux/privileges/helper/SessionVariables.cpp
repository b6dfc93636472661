#include "platform/linux/privileges/helper/SessionVariables.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "platform/linux/privileges/helper/Quoting.h"

namespace zelvo::platform {

namespace {

constexpr std::size_t longestValue = 1024;

/// The order in which they are taken from the environment.
constexpr std::array variableNames{
    "DISPLAY",          "XAUTHORITY",          "XDG_RUNTIME_DIR",         "WAYLAND_DISPLAY",
    "XDG_SESSION_TYPE", "XDG_CURRENT_DESKTOP", "DBUS_SESSION_BUS_ADDRESS"};

// sd_session_get_type(3).
constexpr std::array<std::string_view, 6> sessionTypes{"unspecified", "tty", "x11",
                                                       "wayland",     "mir", "web"};

// The registered names of the desktop menu standard, and what distributions and others add.
constexpr std::array<std::string_view, 31> desktops{
    "Budgie",  "COSMIC", "Cinnamon",      "DDE",   "EDE",    "ENLIGHTENMENT",
    "Endless", "GNOME",  "GNOME-Classic", "KDE",   "LXDE",   "GNOME-Flashback",
    "LXQt",    "MATE",   "Hyprland",      "Old",   "Phosh",  "Pantheon",
    "ROX",     "Razor",  "TDE",           "Unity", "XFCE",   "X-Cinnamon",
    "i3",      "labwc",  "pop",           "sway",  "ubuntu", "wlroots",
    "zorin"};

template <typename Values>
bool contains(const Values& values, std::string_view value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isNameCharacter(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '_' ||
           c == '-';
}

bool isNumber(std::string_view text) {
    return !text.empty() && text.size() <= 5 && std::all_of(text.begin(), text.end(), isDigit);
}

/// [host]:display[.screen]
bool isXDisplay(std::string_view text) {
    auto colon = text.find(':');
    if (colon == text.npos || text.starts_with('-'))
        return false;
    auto host = text.substr(0, colon);
    auto number = text.substr(colon + 1);
    if (auto dot = number.find('.'); dot != number.npos) {
        if (!isNumber(number.substr(dot + 1)))
            return false;
        number = number.substr(0, dot);
    }
    return isNumber(number) && std::all_of(host.begin(), host.end(), isNameCharacter);
}

bool isPath(std::string_view text) {
    auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7f; };
    return text.starts_with('/') && std::none_of(text.begin(), text.end(), isControl);
}

/// A message bus on a socket of this computer. Whose it is the bus itself checks: what is started
/// there has the user's rights and no more.
bool isBusAddress(std::string_view text) {
    auto isAllowed = [](char c) {
        return isNameCharacter(c) || c == '/' || c == ':' || c == '=' || c == ',' || c == '%' ||
               c == ';';
    };
    return text.starts_with("unix:") && std::all_of(text.begin(), text.end(), isAllowed);
}

bool isOwn(const std::string& path, uid_t user, mode_t type, mode_t forbidden) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == type &&
           status.st_uid == user && (status.st_mode & forbidden) == 0;
}

void forEachWord(std::string_view list, const std::function<void(std::string_view)>& use) {
    while (true) {
        auto end = list.find(':');
        use(list.substr(0, end));
        if (end == list.npos)
            return;
        list.remove_prefix(end + 1);
    }
}

std::string knownDesktops(std::string_view list) {
    std::string result;
    forEachWord(list, [&](std::string_view word) {
        if (contains(desktops, word))
            result.append(result.empty() ? "" : ":").append(word);
    });
    return result;
}

}  // namespace

SessionVariables SessionVariables::from(const Lookup& lookup, uid_t user) {
    SessionVariables result(user);
    for (const auto* name : variableNames) {
        auto value = lookup(name).value_or("");
        if (name == std::string_view("XDG_CURRENT_DESKTOP"))
            value = knownDesktops(value);
        if (!value.empty())
            (void)result.add(name, value);
    }
    return result;
}

std::optional<std::string> SessionVariables::add(std::string_view name, const std::string& value) {
    if (!contains(variableNames, name))
        return inQuotes(name) + " is no variable that the Screen Sharing tools take.";
    if (this->value(name))
        return std::string(name) + " is given twice.";
    auto refusal = [&](const char* reason) {
        return std::string(name) + " is " + inQuotes(value) + ", which is " + reason;
    };
    if (value.size() > longestValue)
        return refusal("too long.");
    if (name == "DISPLAY" && !isXDisplay(value))
        return refusal("not the name of an X display.");
    if (name == "XAUTHORITY" && !(isPath(value) && isOwn(value, user_, S_IFREG, S_IWOTH)))
        return refusal("not a file of the user who asks.");
    if (name == "XDG_RUNTIME_DIR" && !(isPath(value) && isOwn(value, user_, S_IFDIR, 077)))
        return refusal("not a private folder of the user who asks.");
    if (name == "WAYLAND_DISPLAY" && !isOwnSocket(value))
        return refusal("not a Wayland display of the user who asks.");
    if (name == "XDG_SESSION_TYPE" && !contains(sessionTypes, value))
        return refusal("not a type of session.");
    if (name == "XDG_CURRENT_DESKTOP" && (value.empty() || knownDesktops(value) != value))
        return refusal("not a list of known desktops.");
    if (name == "DBUS_SESSION_BUS_ADDRESS" && !isBusAddress(value))
        return refusal("not the address of a message bus on this computer.");
    assignments_.push_back(std::string(name) + "=" + value);
    return std::nullopt;
}

std::optional<std::string> SessionVariables::value(std::string_view name) const {
    for (const auto& assignment : assignments_) {
        if (assignment.starts_with(name) && assignment[name.size()] == '=')
            return assignment.substr(name.size() + 1);
    }
    return std::nullopt;
}

bool SessionVariables::isOwnSocket(const std::string& display) const {
    if (isPath(display))
        return isOwn(display, user_, S_IFSOCK, 0);
    auto folder = value("XDG_RUNTIME_DIR");
    return folder && !display.empty() && !display.starts_with('.') &&
           std::all_of(display.begin(), display.end(), isNameCharacter) &&
           isOwn(*folder + "/" + display, user_, S_IFSOCK, 0);
}

}  // namespace zelvo::platform
