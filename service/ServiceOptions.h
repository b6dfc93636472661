#pragma once

#include <optional>
#include <span>
#include <string>

namespace zelvo::service {

/// What the command line says.
struct ServiceOptions {
    std::string database;
    std::string certificate;
    std::string key;
    std::string address = "127.0.0.1";
    std::string host;  ///< host part of the announced URL; empty: the address
    int port = 0;      ///< 0: a free one
    /// What is printed on standard output instead of serving; null: nothing, it serves.
    const char* answer = nullptr;

    static constexpr const char* Usage =
        "usage: zelvo-service --database FILE --certificate PEM --key PEM\n"
        "                     [--address 127.0.0.1] [--port 0] [--host NAME]\n"
        "       zelvo-service -h | --help | --version\n"
        "Serves shared links over HTTPS until SIGTERM or SIGINT. Port 0 takes a free port.\n"
        "Once it accepts connections it prints one line, Service: https://HOST:PORT\n";

    /// Reads the arguments that follow the program's name. Nothing, with the reason in error, when
    /// one is unknown, incomplete, given twice or missing.
    static std::optional<ServiceOptions> parse(std::span<char*> arguments, std::string& error);

    /// The origin of the service's URLs.
    std::string origin(int boundPort) const;
};

}  // namespace zelvo::service
