#include "opener/viewer/LineQuality.h"

#include <algorithm>
#include <utility>

namespace zelvo::opener {

std::size_t LineQuality::notInTheWay() const {
    return std::max<std::size_t>(2 * atOnce, static_cast<std::size_t>(speed_ / 4));
}

bool LineQuality::received(std::size_t bytes, Duration took) {
    if (bytes <= atOnce)
        return false;
    bytes_ += bytes - atOnce;
    took_ += took;
    if (bytes_ < atOnce)
        return false;
    const auto seconds = std::chrono::duration<double>(took_).count();
    // Faster than anything that has to be told apart.
    speed_ = std::min(static_cast<double>(bytes_) / std::max(seconds, 1e-6), 1e8);
    bytes_ = 0;
    took_ = {};
    std::size_t now = 0;
    while (speed_ < levels[now].fasterThan * (now < at_ ? 1.5 : 1))
        ++now;
    return std::exchange(at_, now) != now;
}

}  // namespace zelvo::opener
