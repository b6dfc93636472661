#pragma once

class QUrl;
class QWidget;

namespace zelvo::platform {

/// Shows the help page, a file, in a window of its own beside `window`, with whatever it links to,
/// and returns at once. Usable also while a sheet is up.
void showHelpDialog(QWidget& window, const QUrl& page);

}  // namespace zelvo::platform
