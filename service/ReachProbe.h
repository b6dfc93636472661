#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "serving/Budgets.h"
#include "serving/LoopThread.h"

namespace zelvo::serving {
class Metrics;
}

namespace zelvo::service {

/// Tries whether a host can be reached where it says: one connection to it, which reads the first
/// bytes of a screen server's greeting and sends nothing. On a thread of its own; any thread may
/// call.
class ReachProbe {
  public:
    struct Options {
        std::chrono::milliseconds connectTime{3000};
        std::chrono::milliseconds greetingTime{2000};
        /// Few, since who is tried decides how long it takes.
        std::size_t atOnce = 32;
        std::size_t atOnceOfClient = 2;
        serving::Allowances::Rate ofClient{20, 0.1};
        /// Links of which is known what came of it; the oldest are forgotten.
        std::size_t remembered = 10'000;
        serving::Metrics* metrics = nullptr;
    };

    explicit ReachProbe(const Options& options);
    ReachProbe(const ReachProbe&) = delete;
    ReachProbe& operator=(const ReachProbe&) = delete;
    ~ReachProbe();

    /// Tries that port of the client that has registered the link, whose address is to be proven:
    /// the other end of a connection that asks for it. What was known of the link is over. Returns
    /// at once. Where too much is tried already, nothing is.
    void begin(const std::string& link, const std::string& address, int port);
    /// The link leads elsewhere now: what was found, or is being found, is over. Returns at once.
    void forget(const std::string& link);
    /// Whether a screen server answered there. Nothing where it is not known (yet): nothing was
    /// tried, or who is there says something else.
    std::optional<bool> told(const std::string& link) const;

  private:
    class Attempt;
    using Attempts = std::list<std::unique_ptr<Attempt>>;

    void start(const std::string& link, const std::string& address, int port);
    void abandon(const std::string& link);
    void end(Attempts::iterator attempt, std::optional<bool> reached);
    void remember(const std::string& link, std::optional<bool> reached);
    void count(const char* result);

    const Options options_;
    serving::Shares shares_;
    serving::Allowances allowances_;
    mutable std::mutex mutex_;
    std::list<std::pair<std::string, bool>> known_;  ///< the oldest first
    std::unordered_map<std::string, std::list<std::pair<std::string, bool>>::iterator> byLink_;
    serving::LoopThread loop_{serving::LoopThread::Descriptors::Move};
    Attempts attempts_;  ///< on the loop's thread
};

}  // namespace zelvo::service
