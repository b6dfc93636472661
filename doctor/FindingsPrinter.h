#pragma once

#include <vector>

#include "doctor/Finding.h"

namespace zelvo::doctor {

/// Writes the findings on the standard output, for people or for programs. The exit status: success
/// unless something fails, or they cannot be written.
int printFindings(const std::vector<Finding>& findings, bool asJson);

}  // namespace zelvo::doctor
