#pragma once

#include <cstddef>
#include <span>

#include "opener/facts/FactsSource.h"

namespace zelvo::opener {

/// What a reply of get.php says, whoever may have written it. Parts that only help (layout, hot
/// keys, corners) are left out where they make no sense; without a place to connect to it is
/// nonsense as a whole. Any thread.
FactsAnswer readFacts(std::span<const std::byte> reply);

}  // namespace zelvo::opener
