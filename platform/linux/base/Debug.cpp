#include "platform/linux/base/Debug.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/linux/base/OneLine.h"

namespace zelvo::platform {

namespace {

bool names(std::string_view list, std::string_view topic) {
    while (!list.empty()) {
        auto end = std::min(list.find(','), list.size());
        auto name = list.substr(0, end);
        if (name == topic || name == "all")
            return true;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

}  // namespace

void debug(std::string_view topic, std::string_view event) {
    const char* list = std::getenv("ZELVO_DEBUG");
    if (!list || !names(list, topic))
        return;
    using namespace std::chrono;
    // The machine's own clock, so that lines of several programs can be laid side by side.
    auto now = duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%lld.%03lld ", static_cast<long long>(now / 1000),
                  static_cast<long long>(now % 1000));
    auto line = time.data() + std::string(topic) + ": " + oneLine(event) + "\n";
    // One write, so that the lines of two threads do not mix. There is nowhere to report a failure.
    [[maybe_unused]] auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace zelvo::platform
