#pragma once

#include <string>

class QWidget;

namespace zelvo::platform {

/// Shows the address of a link's page as a large QR code with the address below, and returns at
/// once. Says whether a browser is enough there.
void showQrCodeDialog(QWidget* window, const std::string& webLink, bool browserIsEnough);

}  // namespace zelvo::platform
