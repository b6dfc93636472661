#pragma once

class QUrl;
class QWidget;

namespace zelvo::platform {

/// Shows the help page, a file, and whatever pages it links to, in a window of their own, and
/// returns at once.
void showHelpDialog(QWidget& window, const QUrl& page);

}  // namespace zelvo::platform
