#include "opener/viewer/LineQuality.h"

#include <algorithm>
#include <utility>

namespace zelvo::opener {

bool LineQuality::received(std::size_t bytes, Duration waited) {
    if (bytes <= atOnce)
        return false;
    bytes_ += bytes - atOnce;
    waited_ += waited;
    if (bytes_ < atOnce)
        return false;
    isMeasured_ = true;
    const auto seconds = std::chrono::duration<double>(waited_).count();
    const auto speed = static_cast<double>(bytes_) / std::max(seconds, 1e-6);
    bytes_ = 0;
    waited_ = {};
    std::size_t now = 0;
    while (speed < levels[now].fasterThan * (now < at_ ? 1.5 : 1))
        ++now;
    return std::exchange(at_, now) != now;
}

}  // namespace zelvo::opener
