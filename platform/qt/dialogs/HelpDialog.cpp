#include "platform/qt/dialogs/HelpDialog.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QScreen>
#include <QTextBrowser>
#include <QVBoxLayout>

#include "platform/qt/dialogs/Dialogs.h"
#include "platform/qt/widgets/Images.h"

namespace zelvo::platform {

namespace {

constexpr const char* Name = "helpDialog";
constexpr int IconSize = 48;
constexpr int Margin = 14;
constexpr QSize Size{660, 640};

// What the pages' own sheet says in words that only a browser knows.
constexpr const char* Style =
    "h1 { font-size: x-large; } h2 { font-size: large; margin-top: 22px; }"
    ".note { margin-left: 24px; margin-right: 24px; }";

class HelpBrowser final : public QTextBrowser {
  public:
    using QTextBrowser::QTextBrowser;

    QVariant loadResource(int type, const QUrl& name) override {
        if (type == QTextDocument::StyleSheetResource)
            return QByteArray(Style);
        if (type == QTextDocument::ImageResource) {
            QFileInfo file(source().resolved(name).toLocalFile());
            return renderImage(file.path(), file.completeBaseName(), QSize(IconSize, IconSize),
                               devicePixelRatio());
        }
        return QTextBrowser::loadResource(type, name);
    }
};

// The window's own dialogs are shut off while a sheet is up, and one that hangs on the sheet goes
// with it.
QDialog* makeHelpDialog(QWidget& window) {
    auto* dialog = makeDialog(nullptr, Name, "Help");
    dialog->setWindowIcon(window.windowIcon());
    QObject::connect(&window, &QObject::destroyed, dialog, [dialog] { delete dialog; });

    auto* browser = new HelpBrowser;
    browser->setFrameShape(QFrame::NoFrame);
    browser->document()->setDocumentMargin(Margin);
    QObject::connect(browser, &QTextBrowser::sourceChanged, dialog, [dialog, browser] {
        dialog->setWindowTitle(browser->documentTitle());
        browser->setAccessibleName(browser->documentTitle());
    });
    auto* layout = qobject_cast<QVBoxLayout*>(dialog->layout());
    layout->addWidget(browser);
    layout->addWidget(makeButtons(dialog));
    browser->setFocus();
    dialog->resize(Size.boundedTo(window.screen()->availableSize() * 0.9));
    return dialog;
}

}  // namespace

void showHelpDialog(QWidget& window, const QUrl& page) {
    auto* dialog = findDialog(Name);
    if (!dialog)
        dialog = makeHelpDialog(window);
    dialog->findChild<QTextBrowser*>()->setSource(page);
    showDialog(*dialog);
}

}  // namespace zelvo::platform
