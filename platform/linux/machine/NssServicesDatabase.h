#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "platform/ServicesDatabase.h"

namespace zelvo::platform {

/// getservbyname(3). Looking a missing name up reads the whole database and is asked for many times
/// a second, so an answer is kept until the file of the database changes, five seconds at most.
class NssServicesDatabase : public ServicesDatabase {
  public:
    std::optional<std::uint16_t> tcpPort(const std::string& service) const override;

  private:
    struct Answer {
        std::optional<std::uint16_t> port;
        std::int64_t fileChanged = 0;
        std::chrono::steady_clock::time_point time;
    };

    mutable std::mutex mutex_;
    mutable std::map<std::string, Answer> answers_;
};

}  // namespace zelvo::platform
