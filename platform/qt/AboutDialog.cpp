#include "platform/qt/AboutDialog.h"

#include <QCoreApplication>
#include <QMessageBox>

namespace zelvo::platform {

void showAboutDialog(QWidget& window, const std::string& versionInfo) {
    auto localized = [](const char* key) {
        return QCoreApplication::translate("AboutDialog", key);
    };
    auto* box = new QMessageBox(&window);
    box->setObjectName("aboutDialog");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->setWindowTitle(localized("About Zelvo"));
    box->setTextFormat(Qt::PlainText);
    box->setText("Zelvo\n" + QString::fromStdString(versionInfo));
    box->setInformativeText(localized("Shares your screen through one link."));
    box->setIconPixmap(window.windowIcon().pixmap(64));
    box->addButton(QMessageBox::Close);
    box->open();
}

}  // namespace zelvo::platform
