#include "sealing/ReplayCache.h"

namespace zelvo::sealing {

bool ReplayCache::admit(std::string_view publicHalf) {
    if (!seen_.emplace(publicHalf).second)
        return false;
    order_.emplace_back(publicHalf);
    if (order_.size() > capacity) {
        seen_.erase(order_.front());
        order_.pop_front();
    }
    return true;
}

}  // namespace zelvo::sealing
