#include "platform/qt/dialogs/Dialogs.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QVBoxLayout>

#include "platform/qt/content/Localized.h"

namespace zelvo::platform {

QDialog* makeDialog(QWidget* window, const char* name, const char* title) {
    auto* dialog = new QDialog(window);
    dialog->setObjectName(name);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(localized(title));
    auto* layout = new QVBoxLayout(dialog);
    layout->setContentsMargins(24, 20, 24, 16);
    layout->setSpacing(14);
    return dialog;
}

QDialogButtonBox* makeButtons(QDialog* dialog) {
    auto* buttons = new QDialogButtonBox(dialog);
    buttons->addButton(localized("Close"), QDialogButtonBox::RejectRole);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    return buttons;
}

QDialog* findDialog(const char* name) {
    for (auto* widget : QApplication::topLevelWidgets())
        if (widget->isVisible() && widget->objectName() == name)
            return qobject_cast<QDialog*>(widget);
    return nullptr;
}

bool raiseDialog(const char* name) {
    auto* dialog = findDialog(name);
    if (dialog)
        showDialog(*dialog);
    return dialog;
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
