#include "relay/RelayOptions.h"

#include <string_view>
#include <utility>

namespace zelvo::relay {

serving::OptionTable RelayOptions::table() {
    serving::OptionTable options;
    options.add("name", "NAME", "of this relay, which its certificate is for", name);
    options.add("certificate", "PEM", "chain of certificates, read again on SIGHUP", certificate);
    options.add("key", "PEM", "its private key", key);
    options.add("service-keys", "PEM", "public keys of Ed25519 of those who send hosts",
                serviceKeys);
    options.add("lease-key", "PEM", "private key of Ed25519, this relay's own", leaseKey);
    options.add("address", "ADDRESS", "to listen on; 127.0.0.1", address);
    options.addPort("port", "to listen on; 0, which takes a free one", port);
    options.add("operators", "ADDRESS:PORT", "serve /health and /metrics there, over plain HTTP",
                operators);
    options.addAddresses("proxies", "of proxies, which speak the PROXY protocol", proxies);
    options.addCount("threads", "that serve; one a core", loops);
    options.addCount("connections", "at once; as many as the descriptors allow", connections);
    options.addCount("connections-per-client", "at once; 256", connectionsPerClient);
    options.addRate("requests-per-client", "at once, and in a second then; 120/2",
                    requestsPerClient);
    options.addCount("hosts-per-client", "at once; 64", hostsPerClient);
    options.addCount("hosts-per-owner", "at once; 8", hostsPerOwner);
    options.addCount("viewers-per-host", "at once; 16", viewersPerHost);
    options.addCount("viewers-per-client", "of one host, at once; 4", viewersPerClient);
    options.addRate("bytes-per-host", "at once, and in a second then; 16e6/8e6", bytesPerHost);
    options.addRate("bytes-per-owner", "at once, and in a second then; 100e9/1e6", bytesPerOwner);
    options.addRate("bytes-per-client", "of its hosts, at once, and in a second then; 400e9/4e6",
                    bytesPerClient);
    options.addCount("hours", "that a viewer may stay; 24", hours);
    options.addCount("settle", "seconds from the start on without new numbers; 20", settle);
    return options;
}

std::string RelayOptions::usage() {
    RelayOptions options;
    return "usage: zelvo-relay --name NAME --certificate PEM --key PEM --service-keys PEM\n"
           "                   --lease-key PEM [OPTION ...]\n"
           "       zelvo-relay --config FILE [OPTION ...]\n"
           "       zelvo-relay -h | --help | --version\n"
           "Forwards sealed channels until SIGTERM or SIGINT. Once it accepts connections it\n"
           "prints one line, Relay: ADDRESS:PORT\n\n"
           "Options, in the file as \"name = VALUE\" lines:\n" +
           options.table().help();
}

std::optional<RelayOptions> RelayOptions::parse(std::span<char*> arguments, std::string& error) {
    RelayOptions options;
    for (const std::string_view argument : arguments) {
        if (argument == "-h" || argument == "--help")
            options.answer = usage();
        else if (argument == "--version")
            options.answer = "zelvo-relay " ZELVO_VERSION "\n";
        if (!options.answer.empty())
            return options;
    }
    error = options.table().read(arguments);
    const std::pair<const char*, const std::string&> needed[] = {
        {"name", options.name},
        {"certificate", options.certificate},
        {"key", options.key},
        {"service-keys", options.serviceKeys},
        {"lease-key", options.leaseKey}};
    for (const auto& [name, value] : needed)
        if (error.empty() && value.empty())
            error = std::string("missing option: --") + name;
    return error.empty() ? std::optional(std::move(options)) : std::nullopt;
}

}  // namespace zelvo::relay
