#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>

namespace zelvo::serving {

/// How much each one may have at once: connections that are open. Any thread.
class Shares {
  public:
    explicit Shares(std::size_t most) : most_(most) {}

    /// False where the key has its share already.
    bool take(const std::string& key);
    void giveBack(const std::string& key);

  private:
    const std::size_t most_;
    std::mutex mutex_;
    std::unordered_map<std::string, std::size_t> taken_;
};

/// How often each one may do something: so many at once, and then one as often as the rate says.
/// Any thread.
class Allowances {
  public:
    using Clock = std::chrono::steady_clock;

    struct Rate {
        double atOnce = 0;     ///< 0 for no limit
        double perSecond = 0;  ///< that come back
    };

    /// Remembers so many keys at most; those that were seen last.
    explicit Allowances(Rate rate, std::size_t keys = 100'000) : rate_(rate), mostKeys_(keys) {}

    /// Takes one, or as many as something costs; false where there are not so many left. What
    /// costs more than there ever are takes all.
    bool take(const std::string& key, Clock::time_point now = Clock::now(), double cost = 1);

  private:
    struct Account {
        std::string key;
        double left = 0;
        Clock::time_point at;
    };

    const Rate rate_;
    const std::size_t mostKeys_;
    std::mutex mutex_;
    std::list<Account> accounts_;  ///< by when they were last asked for, the latest first
    std::unordered_map<std::string, std::list<Account>::iterator> byKey_;
};

}  // namespace zelvo::serving
