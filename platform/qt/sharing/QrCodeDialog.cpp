#include "platform/qt/sharing/QrCodeDialog.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

#include "platform/qt/content/Localized.h"
#include "platform/qt/content/QrCode.h"
#include "platform/qt/content/ShownText.h"
#include "platform/qt/dialogs/Dialogs.h"

namespace zelvo::platform {

namespace {

constexpr int QuietZone = 4;
constexpr int Side = 320;

/// Black on white whatever the theme, since not every camera reads the inverse.
class CodeView final : public QWidget {
  public:
    CodeView(QrCode code, QWidget* parent) : QWidget(parent), code_(std::move(code)) {
        setMinimumSize(Side, Side);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), Qt::white);
        int across = code_.size + 2 * QuietZone;
        double module = std::min(width(), height()) / static_cast<double>(across);
        painter.translate((width() - module * across) / 2, (height() - module * across) / 2);
        painter.scale(module, module);
        // A hair wider than a module, or the background shines through between two of them.
        for (int y = 0; y < code_.size; ++y)
            for (int x = 0; x < code_.size; ++x)
                if (code_.isDark(x, y))
                    painter.fillRect(QRectF(x + QuietZone, y + QuietZone, 1.02, 1.02), Qt::black);
    }

  private:
    QrCode code_;
};

}  // namespace

void showQrCodeDialog(QWidget* window, const std::string& webLink, bool browserIsEnough) {
    auto code = makeQrCode(webLink);
    if (!code)
        return;
    if (auto* shown = window ? window->findChild<QDialog*>("qrCodeDialog") : nullptr)
        shown->close();
    auto* dialog = makeDialog(window, "qrCodeDialog", "QR Code");

    auto* explanation = new QLabel(
        localized(browserIsEnough
                      ? "Scan this code with the other device. A browser is all that it needs."
                      : "Scan this code with the other device, which needs Zelvo. For one that has "
                        "only a browser, choose that in the window first."),
        dialog);
    explanation->setWordWrap(true);
    explanation->setAlignment(Qt::AlignCenter);
    auto* view = new CodeView(std::move(*code), dialog);
    view->setObjectName("qrCode");
    view->setAccessibleName(localized("QR code of your link"));
    auto* text = new QLabel(dialog);
    // A label as wide as a long link would be wider than the screen.
    text->setText(text->fontMetrics().elidedText(shownLine(webLink), Qt::ElideMiddle, 2 * Side));
    text->setTextFormat(Qt::PlainText);
    text->setAlignment(Qt::AlignCenter);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    auto* buttons = makeButtons(dialog);

    auto* layout = qobject_cast<QVBoxLayout*>(dialog->layout());
    layout->addWidget(explanation);
    layout->addWidget(view, 1);
    layout->addWidget(text);
    layout->addWidget(buttons);
    buttons->setFocus();
    showDialog(*dialog);
}

}  // namespace zelvo::platform
