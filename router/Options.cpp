#include "router/Options.h"

#include <charconv>
#include <string_view>

namespace zelvo::router {

namespace {

bool parsePort(const std::string& text, std::uint16_t& port) {
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && last == end;
}

bool parseAddressInto(const std::string& text, std::uint32_t& address) {
    const auto parsed = parseAddress(text);
    address = parsed.value_or(address);
    return parsed.has_value();
}

}  // namespace

std::optional<Options> Options::parse(std::span<char* const> arguments, std::string& error) {
    Options options;
    for (std::size_t index = 0; index < arguments.size(); index += 2) {
        const std::string name = arguments[index];
        if (name == "-h" || name == "--help") {
            options.answer = helpText();
        } else if (name == "--version") {
            options.answer = "zelvo-router " ZELVO_VERSION "\n";
        }
        if (options.answer) {
            return options;
        }
        if (name != "--address" && name != "--port" && name != "--external") {
            error = "unknown option: " + name;
            return std::nullopt;
        }
        if (index + 1 == arguments.size()) {
            error = "option without a value: " + name;
            return std::nullopt;
        }
        const std::string value = arguments[index + 1];
        const bool good = name == "--address" ? parseAddressInto(value, options.address.address)
                          : name == "--port"  ? parsePort(value, options.address.port)
                                              : parseAddressInto(value, options.external);
        if (!good) {
            error = name + " " + value + ": not understood";
            return std::nullopt;
        }
    }
    return options;
}

const char* Options::helpText() {
    return "Usage: zelvo-router [--address 127.0.0.1] [--port 0] [--external 127.0.0.1]\n"
           "       zelvo-router -h | --help | --version\n"
           "\n"
           "A router on one machine that forwards ports by NAT-PMP (RFC 6886).\n"
           "\n"
           "  --address ADDRESS   IPv4 address that answers NAT-PMP\n"
           "  --port PORT         and its UDP port, 0 for a free one\n"
           "  --external ADDRESS  IPv4 address of this machine on which external ports open\n"
           "\n"
           "TCP connections to an external port are relayed to the internal one. UDP mappings are\n"
           "granted and their port is reserved; datagrams are not forwarded.\n"
           "\n"
           "The first line on standard output is \"Router: ADDRESS:PORT\", then one line follows "
           "for\n"
           "each mapping made, renewed, deleted or expired. SIGUSR1 prints what is mapped. "
           "SIGTERM\n"
           "and SIGINT end it.\n";
}

}  // namespace zelvo::router
