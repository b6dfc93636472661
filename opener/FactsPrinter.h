#pragma once

#include <string>

#include "opener/facts/HostFacts.h"

namespace zelvo::opener {

/// The facts as lines for people and scripts.
std::string printed(const HostFacts& facts);

}  // namespace zelvo::opener
