#include "serving/Metrics.h"

#include <array>
#include <cstdio>
#include <utility>

namespace zelvo::serving {

Metrics::Counter& Metrics::counter(const std::string& name, const std::string& help,
                                   const std::string& labels) {
    const std::lock_guard lock(mutex_);
    auto& family = families_[name];
    if (family.help.empty())
        family.help = help;
    return family.counters[labels];
}

void Metrics::gauge(const std::string& name, const std::string& help,
                    std::function<double()> value) {
    const std::lock_guard lock(mutex_);
    auto& family = families_[name];
    family.help = help;
    family.type = "gauge";
    family.value = std::move(value);
}

void Metrics::total(const std::string& name, const std::string& help,
                    std::function<double()> value) {
    gauge(name, help, std::move(value));
    const std::lock_guard lock(mutex_);
    families_[name].type = "counter";
}

std::string Metrics::text() const {
    const std::lock_guard lock(mutex_);
    std::string text;
    for (const auto& [name, family] : families_) {
        text +=
            "# HELP " + name + " " + family.help + "\n# TYPE " + name + " " + family.type + "\n";
        for (const auto& [labels, counter] : family.counters)
            text += name + (labels.empty() ? "" : "{" + labels + "}") + " " +
                    std::to_string(counter.load()) + "\n";
        if (family.value) {
            std::array<char, 40> number{};
            std::snprintf(number.data(), number.size(), " %.12g\n", family.value());
            text += name + number.data();
        }
    }
    return text;
}

}  // namespace zelvo::serving
