#pragma once

class QDialog;
class QWidget;

namespace zelvo::platform {

/// Brings the window's dialog of that object name to the front; false where there is none.
bool raiseDialog(QWidget* window, const char* name);

/// Shows a dialog that leaves the window's own controls free, above all the one that closes it.
void showDialog(QDialog& dialog);

/// Closes every dialog of the window.
void closeDialogs(QWidget& window);

}  // namespace zelvo::platform
