#include "platform/linux/nat/base/PollLoop.h"

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <vector>

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

int pollTimeout(NatTime until) {
    const NatTime now = PollLoop::now();
    if (until <= now) {
        return 0;
    }
    return static_cast<int>(
        std::min<std::chrono::milliseconds>(until == Never ? 1h : until - now, 1h).count());
}

}  // namespace

NatTime PollLoop::now() {
    timespec time{};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return NatTime(std::chrono::milliseconds(time.tv_sec * 1000 + time.tv_nsec / 1000000));
}

std::unique_ptr<PollLoop::Watch> PollLoop::watch(int descriptor, short events, Ready ready) {
    const int id = nextId_++;
    entries_[id] = {descriptor, events, std::make_shared<const Ready>(std::move(ready))};
    return std::make_unique<Watch>(*this, id);
}

void PollLoop::turn(NatTime until) {
    std::vector<pollfd> descriptors;
    std::vector<int> ids;
    for (const auto& [id, entry] : entries_) {
        descriptors.push_back({entry.descriptor, entry.events, 0});
        ids.push_back(id);
    }
    if (poll(descriptors.data(), descriptors.size(), pollTimeout(until)) <= 0) {
        return;
    }
    for (std::size_t index = 0; index < ids.size(); ++index) {
        const auto entry = entries_.find(ids[index]);
        if (descriptors[index].revents != 0 && entry != entries_.end()) {
            const auto ready = entry->second.ready;
            (*ready)(descriptors[index].revents);
        }
    }
}

}  // namespace zelvo::platform
