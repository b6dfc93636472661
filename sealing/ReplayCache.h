#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_set>

namespace zelvo::sealing {

/// First messages that this link has seen. One for each link; it ends with it. Who replays one gets
/// no further than the handshake in any case; with this, nobody takes them for one who has the key.
class ReplayCache {
  public:
    /// 4096 of 32 bytes. Only who has the key adds to it; the oldest go first.
    static constexpr std::size_t capacity = 4096;

    /// False where it was here before.
    bool admit(std::string_view publicHalf);

  private:
    std::unordered_set<std::string> seen_;
    std::deque<std::string> order_;
};

}  // namespace zelvo::sealing
