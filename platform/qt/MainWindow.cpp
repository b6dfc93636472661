#include "platform/qt/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFontDatabase>
#include <algorithm>

#include "platform/ApplicationDelegate.h"
#include "platform/Bundle.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/Bindings.h"
#include "platform/qt/Images.h"
#include "platform/qt/MainMenu.h"
#include "platform/qt/StatusTexts.h"
#include "ui_MainWindow.h"

namespace zelvo::platform {

namespace {

constexpr int IconSize = 64;
constexpr int WidthInCharacters = 62;

}  // namespace

MainWindow::MainWindow(QWidget* content, const Surroundings& surroundings)
    : model_(surroundings.model),
      delegate_(surroundings.delegate),
      bundle_(surroundings.bundle),
      ui_(std::make_unique<Ui::MainWindow>()) {
    ui_->setupUi(content);
    setCentralWidget(content);
    setWindowTitle(content->windowTitle());
    auto images = QString::fromStdString(bundle_.resourcePath());
    setWindowIcon(QIcon(renderImage(images, "zelvo", QSize(IconSize, IconSize), 1)));
    for (auto* view : findChildren<ImageView*>())
        view->setFolder(images);

    makeMainMenu(*this, model_, surroundings.application, surroundings.loop);
    connectControls();
    applyFonts();
    subscriptions_ = bindControls(*this, model_, bundle_);
    reserveSpace();
    qApp->installEventFilter(this);
}

MainWindow::~MainWindow() = default;

void MainWindow::connectControls() {
    ui_->shareButton->setAction([this] { model_.shareLink(ui_->shareButton); });
    connect(ui_->portMappingButton, &QPushButton::clicked, this, [this] { model_.startOver(); });
    connect(ui_->disconnectButton, &QPushButton::clicked, this,
            [this] { model_.closeConnection(); });
}

void MainWindow::makeFirstResponder(Button& button) {
    if (auto* control = dynamic_cast<QWidget*>(&button))
        control->setFocus();
}

Button& MainWindow::shareButton() {
    return *ui_->shareButton;
}

void MainWindow::closeEvent(QCloseEvent* event) {
    event->setAccepted(delegate_.windowShouldClose());
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == qApp && event->type() == QEvent::ApplicationActivate)
        delegate_.applicationDidBecomeActive();
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::ApplicationFontChange) {
        applyFonts();
        reserveSpace();
    }
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    reserveSpace();
}

bool MainWindow::event(QEvent* event) {
    bool handled = QMainWindow::event(event);
    if (event->type() == QEvent::LayoutRequest)
        reserveSpace();
    return handled;
}

void MainWindow::applyFonts() {
    QFont title = font();
    title.setPointSizeF(title.pointSizeF() * 1.6);
    title.setBold(true);
    ui_->statusTitle->setFont(title);

    QFont link = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    link.setPointSizeF(font().pointSizeF() * 1.15);
    ui_->linkText->setFont(link);

    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    ui_->versionInfo->setFont(small);

    for (auto* label : {ui_->statusExplanation, ui_->versionInfo}) {
        QPalette soft = palette();
        QColor color = soft.color(QPalette::WindowText);
        color.setAlphaF(0.72F);
        soft.setColor(QPalette::WindowText, color);
        label->setPalette(soft);
    }
    QPalette clear = palette();
    clear.setColor(QPalette::Base, Qt::transparent);
    ui_->linkText->setPalette(clear);
}

// Room for the longest explanation, so that nothing moves when the status changes, and for every
// line that wraps at this width.
void MainWindow::reserveSpace() {
    setMinimumWidth(fontMetrics().averageCharWidth() * WidthInCharacters);
    int rowHeight = ui_->portMappingButton->sizeHint().height() + 6;
    for (auto* text : {ui_->portMappingText, ui_->connectionText})
        text->setMinimumHeight(rowHeight);

    auto* explanation = ui_->statusExplanation;
    int lines = 0;
    for (std::int32_t status = 0; status <= LastStatus; ++status) {
        auto text = QString::fromStdString(bundle_.localizedString(statusExplanationKey(status)));
        auto area = explanation->fontMetrics().boundingRect(
            QRect(0, 0, std::max(explanation->width(), 1), 10000), Qt::TextWordWrap, text);
        lines = std::max(lines, area.height());
    }
    explanation->setMinimumHeight(lines);

    auto* content = centralWidget();
    int height = content->layout()->totalHeightForWidth(content->width());
    content->setMinimumHeight(std::max(height, 0));
}

}  // namespace zelvo::platform
