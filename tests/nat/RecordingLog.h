#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/Log.h"

namespace zelvo::test {

class RecordingLog : public platform::Log {
  public:
    void line(std::string_view text) override {
        const std::lock_guard lock(mutex_);
        lines.emplace_back(text);
    }
    void standardError(std::string_view) override {}

    /// For use while workers still write.
    bool has(const std::string& part) {
        const std::lock_guard lock(mutex_);
        for (const std::string& line : lines) {
            if (line.find(part) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    std::vector<std::string> lines;

  private:
    std::mutex mutex_;
};

}  // namespace zelvo::test
