#pragma once

#include <QString>

namespace zelvo::opener {

/// Identifier of this computer's keyboard layout, such as "de+nodeadkeys"; empty where nobody
/// tells.
QString ownLayout();

}  // namespace zelvo::opener
