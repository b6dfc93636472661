#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "serving/Budgets.h"
#include "serving/ClientAddress.h"
#include "serving/OptionTable.h"

namespace zelvo::relay {

/// What the command line and the configuration file say.
struct RelayOptions {
    std::string name;  ///< as the service knows it
    std::string certificate;
    std::string key;
    std::string leaseKey;     ///< private, ours
    std::string serviceKeys;  ///< public
    std::string address = "127.0.0.1";
    std::string operators;  ///< "ADDRESS:PORT" of /health and /metrics; empty for none
    int port = 0;           ///< 0: a free one
    std::set<serving::ClientAddress> proxies;
    std::size_t loops = 0;        ///< 0: one a core
    std::size_t connections = 0;  ///< 0: as many as the descriptors allow
    std::size_t connectionsPerClient = 256;
    std::size_t hostsPerClient = 64;
    std::size_t hostsPerOwner = 8;
    std::size_t viewersPerHost = 16;
    std::size_t viewersPerClient = 4;
    serving::Allowances::Rate requestsPerClient{120, 2};
    serving::Allowances::Rate bytesPerHost{16e6, 8e6};
    serving::Allowances::Rate bytesPerOwner{100e9, 1e6};
    serving::Allowances::Rate bytesPerClient{400e9, 4e6};  ///< of all hosts there
    std::size_t hours = 24;                                ///< that a viewer may stay
    std::size_t settle = 20;  ///< seconds from the start on without new numbers
    std::chrono::milliseconds headTime{5000};
    std::chrono::milliseconds pairingTime{30000};
    std::chrono::milliseconds pingTime{45000};
    /// What is printed on standard output instead of serving; empty: nothing, it serves.
    std::string answer;

    /// Reads the arguments that follow the program's name. Nothing, with the reason in error, when
    /// one is unknown, incomplete, given twice or missing.
    static std::optional<RelayOptions> parse(std::span<char*> arguments, std::string& error);
    static std::string usage();

  private:
    serving::OptionTable table();
};

}  // namespace zelvo::relay
