#pragma once

#include <string>

namespace zelvo::platform {

struct Alert;
class Explanations;

/// What the system knows of the trouble that the alert is about, localised; empty when that is
/// nothing.
std::string reasonFor(const Alert& alert, const Explanations& explanations);

}  // namespace zelvo::platform
