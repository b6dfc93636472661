#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Log.h"

namespace zelvo::test {

/// Keeps every line.
class RecordingLog : public platform::Log {
  public:
    void line(std::string_view text) override {
        const std::lock_guard lock(mutex_);
        lines.emplace_back(text);
    }
    void standardError(std::string_view text) override { errors.emplace_back(text); }

    /// Whether a line holds the text. For use also while workers still write.
    bool has(std::string_view part) {
        const std::lock_guard lock(mutex_);
        return std::any_of(lines.begin(), lines.end(), [part](const std::string& line) {
            return line.find(part) != std::string::npos;
        });
    }

    std::vector<std::string> lines;
    std::vector<std::string> errors;

  private:
    std::mutex mutex_;
};

}  // namespace zelvo::test
