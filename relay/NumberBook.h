#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "relay/tickets/Tickets.h"
#include "serving/Budgets.h"

namespace zelvo::relay {

class HostLine;
class Pair;

/// What one host may have, and has: all its viewers together.
class HostAccount {
  public:
    using Clock = std::chrono::steady_clock;

    explicit HostAccount(serving::Allowances::Rate rate, std::size_t viewersPerClient = 1)
        : viewersOf(viewersPerClient), rate_(rate), left_(rate.atOnce) {}

    /// Takes what has been forwarded; how long to wait then before there is more.
    std::chrono::milliseconds take(std::size_t bytes, Clock::time_point now = Clock::now());

    std::vector<Pair*> viewers;   ///< in the order in which they came
    serving::Shares viewersOf;    ///< by the viewers' own clients
    std::string owner;            ///< by the latest ticket
    std::string client;           ///< where the host registered from last
    std::uint64_t uncharged = 0;  ///< bytes that the budgets of both do not know of yet

  private:
    const serving::Allowances::Rate rate_;
    double left_;
    Clock::time_point at_ = Clock::now();
};

/// Which numbers of one loop are whose. Every so many'th number, from the loop's index on, is the
/// loop's.
class NumberBook {
  public:
    struct Entry {
        std::string host;
        Moment leaseEnd = 0;
        HostLine* line = nullptr;  ///< null while the host is not connected
        std::shared_ptr<HostAccount> account;
    };

    NumberBook(std::size_t index, std::size_t loops) : index_(index), loops_(loops) {}

    Entry* find(int number);
    /// The number of the lease where it is still the host's, else one that is nobody's. Nothing
    /// when all are taken.
    std::optional<int> give(const std::optional<Lease>& lease, Moment now);

  private:
    std::optional<int> draw(Moment now);
    bool isFree(int number, Moment now, bool leasesCount) const;

    const std::size_t index_;
    const std::size_t loops_;
    std::unordered_map<int, Entry> entries_;
    std::mt19937 random_{std::random_device()()};
};

}  // namespace zelvo::relay
