#include "platform/linux/base/SystemLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/base/OneLine.h"

namespace zelvo::platform {

namespace {

void writeAll(std::string_view text) {
    while (!text.empty()) {
        auto written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        // There is nowhere left to report this to.
        if (written <= 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string shortened(const std::string& line) {
    if (line.size() <= SystemLog::lineLimit)
        return line;
    auto end = SystemLog::lineLimit;
    while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80)
        --end;
    return line.substr(0, end) + "...";
}

}  // namespace

SystemLog::SystemLog(const char* program) {
    ::openlog(program, LOG_PID, LOG_USER);
}

SystemLog::~SystemLog() {
    ::closelog();
}

void SystemLog::line(std::string_view text) {
    auto line = oneLine(text);
    auto kept = shortened(line);
    line += '\n';
    std::lock_guard lock(mutex_);
    toStandardError(line);
    ::syslog(LOG_NOTICE, "%s", kept.c_str());
    recent_.push_back(std::move(kept));
    if (recent_.size() > linesKept)
        recent_.pop_front();
}

void SystemLog::standardError(std::string_view text) {
    std::lock_guard lock(mutex_);
    toStandardError(text);
}

void SystemLog::keepOffStandardError() {
    std::lock_guard lock(mutex_);
    keepsOff_ = true;
}

void SystemLog::toStandardError(std::string_view text) const {
    if (!keepsOff_)
        writeAll(text);
}

std::vector<std::string> SystemLog::recentLines() const {
    std::lock_guard lock(mutex_);
    return {recent_.begin(), recent_.end()};
}

}  // namespace zelvo::platform
