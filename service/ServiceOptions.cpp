#include "service/ServiceOptions.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "relay/tickets/Tickets.h"

namespace zelvo::service {

serving::OptionTable ServiceOptions::table() {
    serving::OptionTable options;
    options.add("database", "PLACE", "of the links: a file, or postgresql://...", database);
    options.addCount("database-connections", "to PostgreSQL, half of them for changes; 8",
                     databaseConnections);
    options.add("certificate", "PEM", "chain of certificates, read again on SIGHUP", certificate);
    options.add("key", "PEM", "its private key", key);
    options.add("address", "ADDRESS", "to listen on; 127.0.0.1", address);
    options.addPort("port", "to listen on; 0, which takes a free one", port);
    options.add("host", "NAME", "by which clients know it; the address", host);
    options.add("operators", "ADDRESS:PORT", "serve /health and /metrics there, over plain HTTP",
                operators);
    options.addAddresses("proxies", "of proxies, which speak the PROXY protocol", server.proxies);
    options.add("relays", "NAME@ADDRESS,...",
                "to which hosts may be sent, and their IPv4 addresses",
                [this](const std::string& text) { return readRelays(text); });
    options.add("relay-key", "PEM", "private key of Ed25519 by which relays know whom we send",
                relayKey);
    options.add("page", "HTML", "what browsers are shown at a link, and beside it the same as .gz",
                page);
    options.addCount("threads", "that serve; one a core", server.loops);
    options.addCount("connections", "at once; as many as the descriptors allow",
                     server.connections);
    options.addCount("connections-per-client", "at once; 256", server.connectionsPerClient);
    options.addRate("requests-per-client", "at once, and in a second then; 200/20",
                    server.requestsPerClient);
    options.addRate("creates-per-client", "links, in the same way; 400/0.2", createsPerClient);
    options.addRate("creates-per-owner", "links, in the same way; 200/0.2", createsPerOwner);
    options.addSwitch("no-probes", "do not try whether hosts that register can be reached",
                      leavesHostsAlone);
    options.addSwitch("log-requests", "write each client and link to standard error", logsRequests);
    return options;
}

bool ServiceOptions::readRelays(const std::string& text) {
    relays.clear();
    for (std::size_t at = 0; at <= text.size();) {
        const auto end = std::min(text.find(',', at), text.size());
        const auto relay = platform::trimmed(text.substr(at, end - at));
        const auto mark = std::min(relay.find('@'), relay.size());
        const auto address =
            serving::ClientAddress::parse(relay.substr(std::min(mark + 1, relay.size())));
        if (mark == 0 || mark > relay::Ticket::LongestName || !address || !address->isIpv4() ||
            !relays.emplace(address->text(), relay.substr(0, mark)).second)
            return false;
        at = end + 1;
    }
    return true;
}

std::string ServiceOptions::usage() {
    ServiceOptions options;
    return "usage: zelvo-service --database PLACE --certificate PEM --key PEM [OPTION ...]\n"
           "       zelvo-service --config FILE [OPTION ...]\n"
           "       zelvo-service links list | end LINK ... | purge [DAYS] --database PLACE\n"
           "       zelvo-service migrate FROM TO [--add]\n"
           "       zelvo-service -h | --help | --version\n"
           "Serves shared links over HTTPS until SIGTERM or SIGINT. Once it accepts connections "
           "it\n"
           "prints one line, Service: https://HOST:PORT\n\n"
           "Options, in the file as \"name = VALUE\" lines:\n" +
           options.table().help();
}

std::optional<ServiceOptions> ServiceOptions::parse(std::span<char*> arguments,
                                                    std::string& error) {
    ServiceOptions options;
    for (const std::string_view argument : arguments) {
        if (argument == "-h" || argument == "--help")
            options.answer = usage();
        else if (argument == "--version")
            options.answer = "zelvo-service " ZELVO_VERSION "\n";
        if (!options.answer.empty())
            return options;
    }
    error = options.table().read(arguments);
    const std::pair<const char*, const std::string&> needed[] = {
        {"database", options.database}, {"certificate", options.certificate}, {"key", options.key}};
    for (const auto& [name, value] : needed)
        if (error.empty() && value.empty())
            error = std::string("missing option: --") + name;
    if (error.empty())
        error = troubleWithDatabase(options.database);
    return error.empty() ? std::optional(std::move(options)) : std::nullopt;
}

std::optional<std::string> ServiceOptions::databaseOf(std::span<char*> arguments,
                                                      std::string& error) {
    ServiceOptions options;
    error = options.table().read(arguments);
    if (error.empty() && options.database.empty())
        error = "missing option: --database";
    if (error.empty())
        error = troubleWithDatabase(options.database);
    return error.empty() ? std::optional(std::move(options.database)) : std::nullopt;
}

std::string ServiceOptions::origin(int boundPort) const {
    auto name = host.empty() ? address : host;
    if (name.find(':') != std::string::npos)
        name = "[" + name + "]";
    return "https://" + name + ":" + std::to_string(boundPort);
}

bool isPostgres(std::string_view database) {
    return database.starts_with("postgresql://") || database.starts_with("postgres://");
}

std::string troubleWithDatabase(std::string_view database) {
    constexpr std::string_view word = "postgres";
    // Which may be meant as a URL, and would make a file of that name, with a password in it.
    const auto isLetter = [](char a, char b) { return (a | ' ') == b; };
    const bool begins = std::ranges::equal(database.substr(0, word.size()), word, isLetter);
    if (isPostgres(database) || (!begins && database.find("://") == database.npos))
        return "";
    return "a database is postgresql://... or a file, which is ./NAME where it begins like that";
}

std::string nameOfDatabase(const std::string& database) {
    return isPostgres(database) ? "PostgreSQL" : database;
}

}  // namespace zelvo::service
