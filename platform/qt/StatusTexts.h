#pragma once

#include <cstdint>
#include <string>

namespace zelvo::platform {

class Explanations;

inline constexpr std::int32_t LastStatus = 7;

/// Keys of the texts that tell the user what a status means and what to do next.
const char* statusTitleKey(std::int32_t status);
const char* statusExplanationKey(std::int32_t status);

/// What the system knows about the stage of the status, localised; empty when that is nothing.
std::string reasonFor(std::int32_t status, Explanations& explanations);

}  // namespace zelvo::platform
