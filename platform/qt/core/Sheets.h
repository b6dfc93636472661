#pragma once

#include <string>

namespace zelvo::platform {

struct Alert;
class Explanations;

/// Identifier of the alert that asks before quitting ends a viewer's session.
inline constexpr const char* SessionSheetIdentifier = "Screen Sharing Session Undergoing";
/// Identifier of the alert that tells that no link came about.
inline constexpr const char* RouterSheetIdentifier = "Router Error";

/// What the system knows of the trouble that the alert is about, localised; empty when that is
/// nothing.
std::string reasonFor(const Alert& alert, Explanations& explanations);

}  // namespace zelvo::platform
