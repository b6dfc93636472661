#pragma once

class QDialog;
class QDialogButtonBox;
class QWidget;

namespace zelvo::platform {

/// A dialog of the window with an empty QVBoxLayout, which is deleted when it is closed. The name
/// is the object's, the title a key of the string table.
QDialog* makeDialog(QWidget* window, const char* name, const char* title);

/// The row of buttons, with one that closes the dialog. Not in the layout yet.
QDialogButtonBox* makeButtons(QDialog* dialog);

/// The dialog of that object name which is on the screen; null where there is none.
QDialog* findDialog(const char* name);
/// Brings it to the front; false where there is none.
bool raiseDialog(const char* name);

/// Shows a dialog that leaves the window's own controls free, above all the one that closes it.
void showDialog(QDialog& dialog);

/// Closes every dialog of the window.
void closeDialogs(QWidget& window);

}  // namespace zelvo::platform
