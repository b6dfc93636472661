#include "host/ListeningPorts.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/PropertyListReader.h"
#include "platform/ServicesDatabase.h"

namespace zelvo {

std::optional<platform::PropertyList> sshServiceName(const platform::PropertyListReader& reader) {
    auto file = reader.dictionaryWithContentsOfFile("/System/Library/LaunchDaemons/ssh.plist");
    if (!file)
        return std::nullopt;
    const platform::PropertyList root(std::move(*file));
    const auto* level = &root;
    for (const char* key : {"Sockets", "Listeners", "SockServiceName"}) {
        level = level->find(key);
        if (!level)
            return std::nullopt;
    }
    return *level;
}

std::string textOfNumberOrString(const platform::PropertyList& value) {
    if (const auto* text = value.string())
        return *text;
    if (const auto* number = value.integer())
        return std::to_string(*number);
    if (const auto* flag = value.boolean())
        return *flag ? "1" : "0";
    if (const auto* number = value.real()) {
        std::array<char, 32> digits{};
        auto end = std::to_chars(digits.data(), digits.data() + digits.size(), *number).ptr;
        return std::string(digits.data(), end);
    }
    return "";
}

std::optional<std::uint16_t> tcpServicePort(const platform::ServicesDatabase& services,
                                            const std::string& name) {
    bool ascii = std::all_of(name.begin(), name.end(),
                             [](char c) { return static_cast<unsigned char>(c) < 128; });
    if (!ascii)
        return std::nullopt;
    return services.tcpPort(name.c_str());
}

std::uint16_t vncServicePort(const platform::ServicesDatabase& services) {
    return tcpServicePort(services, "vnc-server").value_or(DefaultVncPort);
}

}  // namespace zelvo
