#include "platform/linux/base/Environment.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/linux/base/OneLine.h"
#include "platform/linux/base/Users.h"

namespace zelvo::platform {

namespace {

std::optional<std::uint16_t> portNumber(std::string_view text) {
    std::uint16_t port = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0)
        return std::nullopt;
    return port;
}

bool isHostCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.' || c == '_';
}

/// "https://host" or "https://host:port" with nothing behind but one slash. A host is a name, an
/// IPv4 address or an IPv6 address in brackets.
std::optional<std::string> httpsOrigin(std::string_view text) {
    constexpr std::string_view scheme = "https://";
    if (text.ends_with('/'))
        text.remove_suffix(1);
    if (!text.starts_with(scheme))
        return std::nullopt;
    auto authority = text.substr(scheme.size());
    std::string_view rest;
    if (authority.starts_with('[')) {
        auto end = authority.find(']');
        in6_addr address;
        if (end == authority.npos ||
            ::inet_pton(AF_INET6, std::string(authority.substr(1, end - 1)).c_str(), &address) != 1)
            return std::nullopt;
        rest = authority.substr(end + 1);
    } else {
        auto end = static_cast<std::size_t>(
            std::find_if_not(authority.begin(), authority.end(), isHostCharacter) -
            authority.begin());
        if (end == 0)
            return std::nullopt;
        rest = authority.substr(end);
    }
    if (!rest.empty() && (rest[0] != ':' || !portNumber(rest.substr(1))))
        return std::nullopt;
    return std::string(text);
}

/// "address" or "address:port".
bool isIpv4Endpoint(const std::string& text) {
    auto colon = std::min(text.find(':'), text.size());
    in_addr address;
    return ::inet_pton(AF_INET, text.substr(0, colon).c_str(), &address) == 1 &&
           (colon == text.size() || portNumber(std::string_view(text).substr(colon + 1)));
}

std::string withoutSlash(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

std::vector<std::string> split(std::string_view list, char separator) {
    std::vector<std::string> parts;
    while (!list.empty()) {
        auto end = std::min(list.find(separator), list.size());
        if (end > 0)
            parts.emplace_back(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return parts;
}

}  // namespace

Environment Environment::ofProcess() {
    return from([](const char* name) -> std::optional<std::string> {
        const char* value = std::getenv(name);
        return value ? std::optional<std::string>(value) : std::nullopt;
    });
}

Environment Environment::from(const Lookup& lookup) {
    Environment result;
    // A variable that is set and empty counts as not set, as the XDG standard has it.
    auto value = [&](const char* name) { return lookup(name).value_or(""); };
    auto folder = [&](const char* name, const std::string& fallback) {
        auto path = value(name);
        return path.starts_with('/') ? withoutSlash(path) : fallback;
    };

    // But not where the fallback is somebody else's machine.
    auto refuse = [&](const std::string& name, const std::string& wanted) {
        auto given = value(name.c_str());
        result.refusals.push_back(
            name + (given.empty() ? " is empty" : " is \"" + oneLine(given) + "\"") + ", not " +
            wanted + "; without the variable the usual one is asked.");
    };
    if (auto origin = httpsOrigin(lookup("ZELVO_SERVICE").value_or(ZELVO_DEFAULT_SERVICE)))
        result.serviceOrigin = *origin;
    else
        refuse("ZELVO_SERVICE", "an https origin");

    if (auto router = lookup("ZELVO_ROUTER")) {
        if (isIpv4Endpoint(*router))
            result.router = *router;
        else
            refuse("ZELVO_ROUTER", "an IPv4 address or address:port");
    }
    auto authorization = value("ZELVO_AUTHORIZATION");
    result.authorizesItself = authorization == "self";
    if (!authorization.empty() && !result.authorizesItself)
        result.complaints.push_back("ZELVO_AUTHORIZATION is unknown: " + authorization);
    const std::string systemRoot = "/var/lib/zelvo";
    result.systemRoot = folder("ZELVO_ROOT", systemRoot);
    auto root = value("ZELVO_ROOT");
    if (!root.empty() && !root.starts_with('/'))
        result.complaints.push_back("ZELVO_ROOT is no absolute path: " + root);
    // Tools that somebody else runs for us take no folder from us.
    if (result.systemRoot != systemRoot && !result.authorizesItself && ::geteuid() != 0) {
        result.complaints.push_back("ZELVO_ROOT needs ZELVO_AUTHORIZATION=self: " + root);
        result.systemRoot = systemRoot;
    }
    result.certificateFile = value("SSL_CERT_FILE");

    result.home = folder("HOME", homeOfUser(::getuid()));
    auto below = [&](const char* part) {
        return result.home.empty() ? std::string() : (result.home == "/" ? "" : result.home) + part;
    };
    result.configHome = folder("XDG_CONFIG_HOME", below("/.config"));
    result.dataHome = folder("XDG_DATA_HOME", below("/.local/share"));
    result.stateHome = folder("XDG_STATE_HOME", below("/.local/state"));
    result.runtimeFolder = folder("XDG_RUNTIME_DIR", "/run/user/" + std::to_string(::getuid()));

    result.desktop = value("XDG_CURRENT_DESKTOP");
    if (value("WAYLAND_DISPLAY").empty() && value("XDG_SESSION_TYPE") != "wayland")
        result.xDisplay = value("DISPLAY");

    std::string locale;
    for (const auto* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (locale = value(name); !locale.empty())
            break;
    }
    // As gettext has it: the list counts only where a locale other than C is set.
    bool isC = locale.empty() || locale == "C" || locale == "POSIX";
    if (!isC) {
        result.languages = split(value("LANGUAGE"), ':');
        result.languages.push_back(locale);
    }
    return result;
}

}  // namespace zelvo::platform
