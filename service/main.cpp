#include <event2/event.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <future>
#include <span>
#include <string>

#include "relay/tickets/Tickets.h"
#include "service/Administration.h"
#include "service/ReachProbe.h"
#include "service/ServiceOptions.h"
#include "service/SharingEndpoints.h"
#include "service/SharingHandler.h"
#include "service/SqliteArchive.h"
#include "service/SqliteLinkStore.h"
#ifdef ZELVO_POSTGRES
#include "service/postgres/PostgresArchive.h"
#include "service/postgres/PostgresLinkStore.h"
#endif
#include "serving/HttpServer.h"
#include "serving/Metrics.h"
#include "serving/OperatorServer.h"
#include "serving/ServerSignals.h"
#include "serving/TlsContext.h"

namespace {

using namespace zelvo::service;
namespace serving = zelvo::serving;

int complain(const std::string& text) {
    std::fprintf(stderr, "zelvo-service: %s\n", text.c_str());
    return EXIT_FAILURE;
}

[[maybe_unused]] constexpr const char* WithoutPostgres =
    "this program was built without PostgreSQL";

Moment now() {
    return std::time(nullptr);
}

std::unique_ptr<LinkStore> openStore(const ServiceOptions& options, std::string& error) {
    if (!isPostgres(options.database))
        return SqliteLinkStore::open(options.database, &now, error);
#ifdef ZELVO_POSTGRES
    return PostgresLinkStore::open(options.database, options.databaseConnections, &now, error);
#else
    error = WithoutPostgres;
    return nullptr;
#endif
}

std::unique_ptr<LinkArchive> openArchive(const std::string& place, LinkArchive::Use use,
                                         std::string& error) {
    if (!isPostgres(place))
        return SqliteArchive::open(place, use, now(), error);
#ifdef ZELVO_POSTGRES
    return PostgresArchive::open(place, use, error);
#else
    error = WithoutPostgres;
    return nullptr;
#endif
}

void watch(serving::Metrics& metrics, const LinkStore& store, const serving::HttpServer& server) {
    metrics.gauge("zelvo_connections", "Connections that are open.",
                  [&] { return static_cast<double>(server.connections()); });
    metrics.gauge("zelvo_service_changes_waiting", "Changes that wait for the disk.",
                  [&] { return static_cast<double>(store.figures().waiting); });
    metrics.total("zelvo_service_changes_total", "Changes that went to the disk.",
                  [&] { return static_cast<double>(store.figures().changes); });
    metrics.total("zelvo_service_commits_total", "Times that the disk was waited for.",
                  [&] { return static_cast<double>(store.figures().commits); });
    metrics.total("zelvo_service_changes_failed_total", "Changes that the database refused.",
                  [&] { return static_cast<double>(store.figures().failures); });
    metrics.gauge("zelvo_service_well", "1 while the database takes changes.",
                  [&] { return store.isWell() ? 1.0 : 0.0; });
}

SharingEndpoints::Options rulesOf(const ServiceOptions& options,
                                  const std::optional<zelvo::relay::Ed25519>& relayKey,
                                  serving::Allowances& createsOf) {
    SharingEndpoints::Options rules{.clock = &now,
                                    .mayCreate = [&createsOf](const LinkStore::Owner& owner) {
                                        return owner.empty() || createsOf.take(owner);
                                    }};
    rules.relays = options.relays;
    if (relayKey)
        rules.ticketFor = [&relayKey, clock = rules.clock](const LinkStore::Owner& owner,
                                                           const std::string& place) {
            const auto relay = place.substr(0, place.find(':'));
            return zelvo::relay::Ticket{clock() + zelvo::relay::Ticket::ValidFor,
                                        owner.empty() ? zelvo::relay::freshPseudonym()
                                                      : zelvo::relay::pseudonymOf(owner, relay),
                                        relay}
                .sealed(*relayKey);
        };
    return rules;
}

/// Serves until a signal ends it.
int serve(ServiceOptions& options, std::shared_ptr<const serving::TlsContext> tls, LinkStore& store,
          const std::optional<zelvo::relay::Ed25519>& relayKey, const std::optional<WebPage>& page,
          serving::ServerSignals& signals) {
    serving::Metrics metrics;
    serving::Allowances createsOf(options.createsPerOwner);
    auto rules = rulesOf(options, relayKey, createsOf);
    std::optional<ReachProbe> probe;
    if (!options.leavesHostsAlone)
        rules.probe = &probe.emplace(ReachProbe::Options{.metrics = &metrics});
    SharingEndpoints endpoints(store, std::move(rules));
    SharingHandler handler(endpoints, {.createsPerClient = options.createsPerClient,
                                       .logsRequests = options.logsRequests,
                                       .metrics = &metrics,
                                       .page = page ? &*page : nullptr});
    options.server.metrics = &metrics;
    options.server.refusal = &SharingHandler::refuse;
    serving::HttpServer server(
        [&handler](const serving::HttpRequest& request, serving::HttpServer::Respond respond) {
            handler.handle(request, std::move(respond));
        },
        options.server);
    server.setTls(std::move(tls));
    watch(metrics, store, server);
    serving::OperatorServer operators(metrics, [&store] { return store.isWell(); });
    if (!options.operators.empty() && !operators.start(options.operators))
        return complain("cannot listen on " + options.operators);
    const auto port = server.listen(options.address, options.port);
    if (!port)
        return complain("cannot listen on " + options.address + ", port " +
                        std::to_string(options.port));
    server.start();

    std::promise<void> end;
    signals.start({.end =
                       [&end, isOver = false]() mutable {
                           if (!std::exchange(isOver, true))
                               end.set_value();
                       },
                   .reload =
                       [&] {
                           std::string error;
                           auto fresh =
                               serving::TlsContext::read(options.certificate, options.key, error);
                           if (!fresh)
                               return void(complain(error + "; the old certificate goes on"));
                           server.setTls(std::move(fresh));
                           std::fputs("zelvo-service: new certificate\n", stderr);
                       }});
    std::printf("Service: %s\n", options.origin(*port).c_str());
    std::fflush(stdout);
    end.get_future().wait();
    server.stop();
    signals.stop();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int badUsage = 2;
    umask(S_IRWXG | S_IRWXO);  // the database tells where people's machines are
    std::string error;
    std::span arguments(argv, static_cast<std::size_t>(argc));
    if (const auto status =
            Administration(&openArchive, now()).run(arguments.subspan(argc > 0 ? 1 : 0))) {
        return *status;
    }
    auto options = ServiceOptions::parse(arguments.subspan(argc > 0 ? 1 : 0), error);
    if (!options) {
        complain(error);
        std::fputs(ServiceOptions::usage().c_str(), stderr);
        return badUsage;
    }
    if (!options->answer.empty())
        return std::fputs(options->answer.c_str(), stdout) >= 0 && std::fflush(stdout) == 0
                   ? EXIT_SUCCESS
                   : EXIT_FAILURE;

    std::signal(SIGPIPE, SIG_IGN);  // a client that is gone is that connection's failure alone
    // The library's own lines are about single clients, who are not to be named.
    event_set_log_callback([](int, const char*) {});
    serving::ServerSignals signals;
    auto tls = serving::TlsContext::read(options->certificate, options->key, error);
    if (!tls)
        return complain(error);
    std::optional<zelvo::relay::Ed25519> relayKey;
    if (!options->relayKey.empty() &&
        !(relayKey = zelvo::relay::Ed25519::readPrivate(options->relayKey, error)))
        return complain(error);
    std::optional<WebPage> page;
    if (!options->page.empty() && !(page = WebPage::read(options->page, options->relays, error)))
        return complain(error);
    auto store = openStore(*options, error);
    if (!store)
        return complain(nameOfDatabase(options->database) + ": " + error);
    return serve(*options, std::move(tls), *store, relayKey, page, signals);
}
