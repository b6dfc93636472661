#include "serving/Budgets.h"

#include <algorithm>

namespace zelvo::serving {

bool Shares::take(const std::string& key) {
    const std::lock_guard lock(mutex_);
    auto& taken = taken_[key];
    if (taken >= most_)
        return false;
    ++taken;
    return true;
}

void Shares::giveBack(const std::string& key) {
    const std::lock_guard lock(mutex_);
    auto found = taken_.find(key);
    if (found != taken_.end() && --found->second == 0)
        taken_.erase(found);
}

bool Allowances::take(const std::string& key, Clock::time_point now, double cost) {
    if (rate_.atOnce <= 0)
        return true;
    const std::lock_guard lock(mutex_);
    auto found = byKey_.find(key);
    if (found == byKey_.end()) {
        if (byKey_.size() >= mostKeys_) {
            byKey_.erase(accounts_.back().key);
            accounts_.pop_back();
        }
        accounts_.push_front({key, rate_.atOnce, now});
        found = byKey_.emplace(key, accounts_.begin()).first;
    } else {
        accounts_.splice(accounts_.begin(), accounts_, found->second);
    }
    auto& account = *found->second;
    const std::chrono::duration<double> since = now - account.at;
    account.left = std::min(rate_.atOnce, account.left + since.count() * rate_.perSecond);
    account.at = now;
    cost = std::min(cost, rate_.atOnce);
    if (account.left < cost)
        return false;
    account.left -= cost;
    return true;
}

}  // namespace zelvo::serving
