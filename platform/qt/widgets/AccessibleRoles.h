#pragma once

namespace zelvo::platform {

/// Tells assistive technology what our own controls are. Once in a process is enough; more do no
/// harm.
void installAccessibleRoles();

}  // namespace zelvo::platform
