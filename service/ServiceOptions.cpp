#include "service/ServiceOptions.h"

#include <charconv>
#include <map>
#include <string_view>
#include <utility>

namespace zelvo::service {
namespace {

std::optional<int> portNumber(std::string_view text) {
    int number = -1;
    auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size() || number < 0 || number > 65535)
        return std::nullopt;
    return number;
}

}  // namespace

std::optional<ServiceOptions> ServiceOptions::parse(std::span<char*> arguments,
                                                    std::string& error) {
    ServiceOptions options;
    std::string port = "0";
    std::map<std::string_view, std::string*> places = {
        {"--database", &options.database}, {"--certificate", &options.certificate},
        {"--key", &options.key},           {"--address", &options.address},
        {"--host", &options.host},         {"--port", &port}};
    const auto known = places;
    for (std::size_t i = 0; i < arguments.size(); i += 2) {
        std::string name = arguments[i];
        if (name == "-h" || name == "--help")
            options.answer = Usage;
        else if (name == "--version")
            options.answer = "zelvo-service " ZELVO_VERSION "\n";
        if (options.answer)
            return options;
        auto place = places.find(name);
        if (place == places.end())
            error = (known.contains(name) ? "repeated option: " : "unknown option: ") + name;
        else if (i + 1 == arguments.size() || *arguments[i + 1] == '\0')
            error = "option without a value: " + name;
        else
            *place->second = arguments[i + 1];
        if (!error.empty())
            return std::nullopt;
        places.erase(place);
    }
    for (const char* needed : {"--database", "--certificate", "--key"})
        if (places.contains(needed))
            error = std::string("missing option: ") + needed;
    if (auto number = portNumber(port))
        options.port = *number;
    else
        error = "not a port: " + port;
    return error.empty() ? std::optional(std::move(options)) : std::nullopt;
}

std::string ServiceOptions::origin(int boundPort) const {
    auto name = host.empty() ? address : host;
    if (name.find(':') != std::string::npos)
        name = "[" + name + "]";
    return "https://" + name + ":" + std::to_string(boundPort);
}

}  // namespace zelvo::service
