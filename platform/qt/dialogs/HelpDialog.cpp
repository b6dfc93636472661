#include "platform/qt/dialogs/HelpDialog.h"

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

// The pages' own sheet is for browsers.
constexpr const char* Style =
    "h2 { margin-top: 20px; } li { margin-bottom: 5px; }"
    ".note { margin-left: 22px; margin-right: 22px; }";

class HelpBrowser final : public QTextBrowser {
  public:
    using QTextBrowser::QTextBrowser;

    QVariant loadResource(int type, const QUrl& name) override {
        if (type == QTextDocument::ImageResource) {
            QFileInfo file(source().resolved(name).toLocalFile());
            return renderImage(file.path(), file.completeBaseName(), QSize(IconSize, IconSize),
                               devicePixelRatio());
        }
        return QTextBrowser::loadResource(type, name);
    }
};

QDialog* makeHelpDialog(QWidget& window) {
    auto* dialog = makeDialog(&window, Name, "Help");
    auto* browser = new HelpBrowser;
    browser->setFrameShape(QFrame::NoFrame);
    browser->document()->setDocumentMargin(Margin);
    browser->document()->setDefaultStyleSheet(Style);
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
