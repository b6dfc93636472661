#pragma once

#include "platform/Random.h"

namespace zelvo::platform {

/// getrandom(2).
class SystemRandom : public Random {
  public:
    std::uint32_t uniform32() override;
};

}  // namespace zelvo::platform
