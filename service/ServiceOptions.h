#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "serving/HttpServer.h"
#include "serving/OptionTable.h"

namespace zelvo::service {

/// What the command line and the configuration file say.
struct ServiceOptions {
    std::string database;  ///< a file, or a URL of PostgreSQL
    std::size_t databaseConnections = 8;
    std::string certificate;
    std::string key;
    std::string address = "127.0.0.1";
    std::string host;       ///< host part of the announced URL; empty: the address
    std::string operators;  ///< "ADDRESS:PORT" of /health and /metrics; empty for none
    int port = 0;           ///< 0: a free one
    bool logsRequests = false;
    bool leavesHostsAlone = false;
    std::map<std::string, std::string> relays;  ///< names by address
    std::string relayKey;                       ///< by which they know us
    std::string page;                           ///< for browsers; empty for none
    /// The largest facts, with each byte escaped, are 300 KiB.
    serving::HttpServer::Options server{.bodyLength = 512 * 1024,
                                        .connectionsPerClient = 256,
                                        .requestsPerClient = {200, 20},
                                        .bytesPerSecond = 16 * 1024 * 1024};
    serving::Allowances::Rate createsPerClient{400, 0.2};
    serving::Allowances::Rate createsPerOwner{200, 0.2};
    /// What is printed on standard output instead of serving; empty: nothing, it serves.
    std::string answer;

    /// Reads the arguments that follow the program's name. Nothing, with the reason in error, when
    /// one is unknown, incomplete, given twice or missing.
    static std::optional<ServiceOptions> parse(std::span<char*> arguments, std::string& error);
    static std::string usage();
    /// The database alone, for which nothing else has to be said.
    static std::optional<std::string> databaseOf(std::span<char*> arguments, std::string& error);

    /// The origin of the service's URLs.
    std::string origin(int boundPort) const;

  private:
    serving::OptionTable table();
    bool readRelays(const std::string& text);
};

/// Whether the database is a server, and not a file.
bool isPostgres(std::string_view database);
/// Why a place is neither a server nor meant as a file; empty where it is one of the two.
std::string troubleWithDatabase(std::string_view database);
/// For messages: without what a URL may have of passwords.
std::string nameOfDatabase(const std::string& database);

}  // namespace zelvo::service
