#pragma once

#include <string>

class QWidget;

namespace zelvo::platform {

/// Shows the link as a large QR code with the link below, and returns at once.
void showQrCodeDialog(QWidget* window, const std::string& link);

}  // namespace zelvo::platform
