#include "platform/qt/dialogs/AboutDialog.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QVBoxLayout>

#include "platform/qt/content/Localized.h"
#include "platform/qt/dialogs/Dialogs.h"

namespace zelvo::platform {

namespace {

constexpr int IconSize = 64;

}  // namespace

void showAboutDialog(QWidget& window, const std::string& versionInfo) {
    if (raiseDialog("aboutDialog"))
        return;
    auto* dialog = makeDialog(&window, "aboutDialog", "About Zelvo");

    auto* icon = new QLabel;
    icon->setPixmap(
        window.windowIcon().pixmap(QSize(IconSize, IconSize), window.devicePixelRatio()));
    icon->setAccessibleName("Zelvo");
    auto* name = new QLabel("Zelvo");
    QFont large = name->font();
    large.setPointSizeF(large.pointSizeF() * 1.5);
    large.setBold(true);
    name->setFont(large);
    auto* words = new QVBoxLayout;
    words->setSpacing(4);
    words->addWidget(name);
    for (const auto& line :
         {QString::fromStdString(versionInfo), localized("Shares your screen through one link.")})
        words->addWidget(new QLabel(line));

    auto* header = new QHBoxLayout;
    header->setSpacing(18);
    header->addWidget(icon, 0, Qt::AlignTop);
    header->addLayout(words, 1);
    auto* layout = qobject_cast<QVBoxLayout*>(dialog->layout());
    layout->addLayout(header);
    layout->addWidget(makeButtons(dialog));
    showDialog(*dialog);
}

}  // namespace zelvo::platform
