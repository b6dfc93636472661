#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace zelvo::serving {

/// Counters and gauges, told in the text format that Prometheus reads. Any thread.
class Metrics {
  public:
    using Counter = std::atomic<std::uint64_t>;

    /// The counter of that name and those labels, such as `status="0"`; it lives as long as this
    /// object. The help is the first one's of a name.
    Counter& counter(const std::string& name, const std::string& help,
                     const std::string& labels = {});
    /// A value that is asked for when somebody looks.
    void gauge(const std::string& name, const std::string& help, std::function<double()> value);
    /// The same, for one that only grows.
    void total(const std::string& name, const std::string& help, std::function<double()> value);

    std::string text() const;

  private:
    struct Family {
        std::string help;
        const char* type = "counter";
        std::map<std::string, Counter> counters;
        std::function<double()> value;
    };

    mutable std::mutex mutex_;
    std::map<std::string, Family> families_;
};

}  // namespace zelvo::serving
