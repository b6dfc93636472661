#include "serving/Expectation.h"

#include <event2/buffer.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

namespace zelvo::serving {
namespace {

bool isNamed(std::string_view line, std::string_view name) {
    return line.size() > name.size() && line[name.size()] == ':' &&
           strncasecmp(line.data(), name.data(), name.size()) == 0;
}

bool isMore(std::string_view number, std::size_t most) {
    number.remove_prefix(std::min(number.find_first_not_of(" \t"), number.size()));
    std::size_t length = 0;
    const auto read = std::from_chars(number.data(), number.data() + number.size(), length);
    return read.ec == std::errc::result_out_of_range || length > most;
}

}  // namespace

void dropBody(evbuffer* buffer) {
    const auto size = evbuffer_get_length(buffer);
    auto* bytes = reinterpret_cast<char*>(evbuffer_pullup(buffer, -1));
    for (std::size_t at = 0; bytes && at < size;) {
        const std::string_view left(bytes + at, size - at);
        const auto line = left.substr(0, left.find('\n'));
        if (isNamed(line, "Transfer-Encoding"))
            bytes[at] = 'X';
        if (isNamed(line, "Content-Length"))
            std::replace_if(
                bytes + at, bytes + at + line.size(), [](char c) { return c >= '0' && c <= '9'; },
                '0');
        at += std::min(line.size() + 1, left.size());
    }
}

void spoilTooGreatExpectation(evbuffer* buffer, std::size_t most) {
    const auto size = evbuffer_get_length(buffer);
    auto* bytes = reinterpret_cast<char*>(evbuffer_pullup(buffer, -1));
    if (!bytes)
        return;
    std::string_view left(bytes, size);
    std::size_t expectation = 0;
    bool isTooGreat = false;
    while (!left.empty()) {
        const auto line = left.substr(0, left.find('\n'));
        if (isNamed(line, "Expect"))
            expectation = size - left.size() + line.find_last_not_of("\r ");
        else if (isNamed(line, "Content-Length"))
            isTooGreat = isMore(line.substr(sizeof "Content-Length"), most);
        left.remove_prefix(std::min(line.size() + 1, left.size()));
    }
    if (isTooGreat && expectation > 0)
        bytes[expectation] = '?';
}

}  // namespace zelvo::serving
