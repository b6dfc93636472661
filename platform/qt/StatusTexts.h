#pragma once

#include <cstdint>

namespace zelvo::platform {

inline constexpr std::int32_t LastStatus = 7;

/// Keys of the texts that tell the user what a status means and what to do next.
const char* statusTitleKey(std::int32_t status);
const char* statusExplanationKey(std::int32_t status);

}  // namespace zelvo::platform
