#pragma once

#include <string>

class QWidget;

namespace zelvo::platform {

/// Shows who this application is, and returns at once.
void showAboutDialog(QWidget& window, const std::string& versionInfo);

}  // namespace zelvo::platform
