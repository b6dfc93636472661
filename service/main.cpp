#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "service/HttpsServer.h"
#include "service/LinkStore.h"
#include "service/ServiceOptions.h"
#include "service/SharingEndpoints.h"
#include "service/TerminationSignals.h"
#include "service/TlsContext.h"

namespace {

int complain(const std::string& text) {
    std::fprintf(stderr, "zelvo-service: %s\n", text.c_str());
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace zelvo::service;
    constexpr int badUsage = 2;

    std::string error;
    std::span arguments(argv, static_cast<std::size_t>(argc));
    auto options = ServiceOptions::parse(arguments.subspan(argc > 0 ? 1 : 0), error);
    if (!options) {
        complain(error);
        std::fputs(ServiceOptions::Usage, stderr);
        return badUsage;
    }
    if (options->answer)
        return std::fputs(options->answer, stdout) >= 0 && std::fflush(stdout) == 0 ? EXIT_SUCCESS
                                                                                    : EXIT_FAILURE;

    std::signal(SIGPIPE, SIG_IGN);  // a client that is gone is that connection's failure alone
    umask(S_IRWXG | S_IRWXO);       // the database tells where people's machines are
    auto store = LinkStore::open(options->database, error);
    if (!store)
        return complain(options->database + ": " + error);
    TlsContext tls(options->certificate, options->key, error);
    if (!tls.isValid())
        return complain(error);

    SharingEndpoints endpoints(*store);
    HttpsServer server(tls, endpoints);
    auto port = server.bind(options->address, options->port);
    if (!port)
        return complain("cannot listen on " + options->address + ", port " +
                        std::to_string(options->port));
    TerminationSignals signals([&server] { server.stop(); });

    std::printf("Service: %s\n", options->origin(*port).c_str());
    std::fflush(stdout);
    return server.run() ? EXIT_SUCCESS : complain("cannot accept connections any more");
}
