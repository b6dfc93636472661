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

constexpr const char* DialogName = "helpDialog";
constexpr int PageIconSize = 48;
constexpr int PageMargin = 14;
constexpr QSize DialogSize{660, 640};

// The pages' own sheet is for browsers.
constexpr const char* PageStyle =
    "h2 { margin-top: 20px; } li { margin-bottom: 5px; }"
    ".note { margin-left: 22px; margin-right: 22px; }";

class HelpBrowser final : public QTextBrowser {
  public:
    using QTextBrowser::QTextBrowser;

    QVariant loadResource(int type, const QUrl& name) override {
        if (type == QTextDocument::ImageResource) {
            QFileInfo file(source().resolved(name).toLocalFile());
            return renderImage(file.path(), file.completeBaseName(),
                               QSize(PageIconSize, PageIconSize), devicePixelRatio());
        }
        return QTextBrowser::loadResource(type, name);
    }
};

QDialog* makeHelpDialog(QWidget& window) {
    auto* dialog = makeDialog(&window, DialogName, "Help");
    auto* browser = new HelpBrowser;
    browser->setFrameShape(QFrame::NoFrame);
    browser->document()->setDocumentMargin(PageMargin);
    browser->document()->setDefaultStyleSheet(PageStyle);
    QObject::connect(browser, &QTextBrowser::sourceChanged, dialog, [dialog, browser] {
        dialog->setWindowTitle(browser->documentTitle());
        browser->setAccessibleName(browser->documentTitle());
    });
    auto* layout = qobject_cast<QVBoxLayout*>(dialog->layout());
    layout->addWidget(browser);
    layout->addWidget(makeButtons(dialog));
    browser->setFocus();
    dialog->resize(DialogSize.boundedTo(window.screen()->availableSize() * 0.9));
    return dialog;
}

}  // namespace

void showHelpDialog(QWidget& window, const QUrl& page) {
    auto* dialog = findDialog(DialogName);
    if (!dialog)
        dialog = makeHelpDialog(window);
    dialog->findChild<QTextBrowser*>()->setSource(page);
    showDialog(*dialog);
}

}  // namespace zelvo::platform
