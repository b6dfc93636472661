#include "platform/qt/Dialogs.h"

#include <QDialog>

namespace zelvo::platform {

bool raiseDialog(QWidget* window, const char* name) {
    auto* dialog = window ? window->findChild<QDialog*>(name) : nullptr;
    if (!dialog || !dialog->isVisible())
        return false;
    showDialog(*dialog);
    return true;
}

void showDialog(QDialog& dialog) {
    dialog.show();
    dialog.raise();
    dialog.activateWindow();
}

void closeDialogs(QWidget& window) {
    for (auto* dialog : window.findChildren<QDialog*>())
        dialog->close();
}

}  // namespace zelvo::platform
