#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"

namespace zelvo::platform {

/// One line on standard error and one entry in syslog(3) for each diagnostic. Any thread.
class SystemLog : public Log {
  public:
    static constexpr std::size_t linesKept = 200;
    /// Bytes of one line that are kept and given to syslog; standard error gets all of it.
    static constexpr std::size_t lineLimit = 4096;

    /// `program` names the entries in syslog, and outlives the log.
    explicit SystemLog(const char* program = "zelvo");
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;
    ~SystemLog() override;

    /// Control characters, and bytes that are not UTF-8, are written as escapes ("\n", "\x1b"); one
    /// line end that closes the text is left out.
    void line(std::string_view text) override;
    void standardError(std::string_view text) override;

    /// Nothing goes to standard error any more: it is a terminal that something is drawn on.
    void keepOffStandardError();

    /// The last lines, oldest first.
    std::vector<std::string> recentLines() const;

  private:
    void toStandardError(std::string_view text) const;

    mutable std::mutex mutex_;
    bool keepsOff_ = false;
    std::deque<std::string> recent_;
};

}  // namespace zelvo::platform
