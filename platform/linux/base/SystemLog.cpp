#include "platform/linux/base/SystemLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/base/TextEncoding.h"

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

void appendEscaped(std::string& line, unsigned char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    switch (byte) {
        case '\n':
            line += "\\n";
            break;
        case '\r':
            line += "\\r";
            break;
        case '\t':
            line += "\\t";
            break;
        default:
            line += "\\x";
            line += digits[byte >> 4];
            line += digits[byte & 0xF];
    }
}

std::string oneLine(std::string_view text) {
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    std::string line;
    line.reserve(text.size() + 1);
    while (!text.empty()) {
        auto length = utf8SequenceLength(text);
        auto first = static_cast<unsigned char>(text[0]);
        // 0xC2 leads the second block of control characters, U+0080 to U+009F.
        bool isControl =
            first < 0x20 || first == 0x7F ||
            (length == 2 && first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0);
        if (length == 0 || isControl) {
            for (auto byte : text.substr(0, length == 0 ? 1 : length))
                appendEscaped(line, static_cast<unsigned char>(byte));
        } else {
            line += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return line;
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

SystemLog::SystemLog() {
    ::openlog("zelvo", LOG_PID, LOG_USER);
}

SystemLog::~SystemLog() {
    ::closelog();
}

void SystemLog::line(std::string_view text) {
    auto line = oneLine(text);
    auto kept = shortened(line);
    line += '\n';
    std::lock_guard lock(mutex_);
    writeAll(line);
    ::syslog(LOG_NOTICE, "%s", kept.c_str());
    recent_.push_back(std::move(kept));
    if (recent_.size() > linesKept)
        recent_.pop_front();
}

void SystemLog::standardError(std::string_view text) {
    std::lock_guard lock(mutex_);
    writeAll(text);
}

std::vector<std::string> SystemLog::recentLines() const {
    std::lock_guard lock(mutex_);
    return {recent_.begin(), recent_.end()};
}

}  // namespace zelvo::platform
