#pragma once

#include <cstdint>
#include <string>

namespace zelvo::platform {

class Explanations;
class MainWindowModel;

/// Stands beside the statuses for the time after the decision to quit.
inline constexpr std::int32_t QuittingStatus = 8;
inline constexpr std::int32_t LastStatus = QuittingStatus;

/// The model's status, or that it quits.
std::int32_t shownStatus(MainWindowModel& model);

/// Keys of the texts that tell the user what a status means and what to do next.
const char* statusTitleKey(std::int32_t status);
const char* statusExplanationKey(std::int32_t status);

/// What the system knows about the stage of the status, localised; empty when that is nothing.
std::string reasonFor(std::int32_t status, Explanations& explanations);

}  // namespace zelvo::platform
