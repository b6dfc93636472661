#include "platform/qt/window/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFontDatabase>
#include <QMenuBar>
#include <algorithm>

#include "platform/ApplicationDelegate.h"
#include "platform/Bundle.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/qt/widgets/AccessibleRoles.h"
#include "platform/qt/widgets/Images.h"
#include "platform/qt/window/Bindings.h"
#include "platform/qt/window/MainMenu.h"
#include "ui_MainWindow.h"

namespace zelvo::platform {

namespace {

constexpr int IconSize = 64;
constexpr int WidthInDigits = 68;

}  // namespace

MainWindow::MainWindow(QWidget* content, const Surroundings& surroundings)
    : model_(surroundings.model),
      delegate_(surroundings.delegate),
      bundle_(surroundings.bundle),
      ui_(std::make_unique<Ui::MainWindow>()) {
    installAccessibleRoles();
    ui_->setupUi(content);
    setCentralWidget(content);
    setWindowTitle(content->windowTitle());
    auto images = QString::fromStdString(bundle_.resourcePath());
    QIcon icon;
    for (int size : {IconSize, 2 * IconSize})
        icon.addPixmap(renderImage(images, "zelvo", QSize(size, size), 1));
    setWindowIcon(icon);
    for (auto* view : findChildren<ImageView*>())
        view->setFolder(images);

    makeMainMenu(*this, model_, surroundings.application, surroundings.loop);
    connectControls();
    applyLook();
    subscriptions_ = bindControls(*this, model_, surroundings.explanations, bundle_);
    subscriptions_.push_back(model_.isQuitting().subscribe([this](bool quits) {
        setControlsEnabled(!quits);
        if (quits)
            ui_->noticeLine->clear();
    }));
    reserveSpace();
    resize(minimumWidth(), centralWidget()->minimumHeight());
    content->installEventFilter(this);
    // Nothing has the focus until the share button gets it: a focused field hides its hint.
    content->setFocus();
    connect(qApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state == Qt::ApplicationActive)
                    delegate_.applicationDidBecomeActive();
            });
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

void MainWindow::say(const Notice& notice) {
    ui_->noticeLine->say(notice);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    event->setAccepted(delegate_.windowShouldClose());
}

void MainWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::PaletteChange) {
        applyLook();
        reserveSpace();
    }
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    reserveSpace();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == centralWidget() && event->type() == QEvent::LayoutRequest)
        reserveSpace();
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::applyLook() {
    QFont title = font();
    title.setPointSizeF(title.pointSizeF() * 1.5);
    title.setBold(true);
    ui_->statusTitle->setFont(title);

    QFont link = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    link.setPointSizeF(font().pointSizeF() * 1.25);
    ui_->linkText->setFont(link);

    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    ui_->versionInfo->setFont(small);

    for (QLabel* label : std::initializer_list<QLabel*>{ui_->statusExplanation, ui_->versionInfo}) {
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

void MainWindow::setControlsEnabled(bool enabled) {
    for (auto* part : std::initializer_list<QWidget*>{menuBar(), ui_->linkPanel, ui_->statusPanel})
        part->setEnabled(enabled);
}

// Room for the longest headline and explanation, so that nothing moves when the status changes, and
// for every line that wraps at this width.
void MainWindow::reserveSpace() {
    // Digits are alike in every script; an average character of a Chinese font is twice as wide.
    setMinimumWidth(fontMetrics().horizontalAdvance("0123456789") * WidthInDigits / 10);
    int width = std::max(this->width(), minimumWidth());
    auto margins = ui_->content->contentsMargins();
    int textWidth =
        width - margins.left() - margins.right() - ui_->appIcon->width() - ui_->header->spacing();
    auto height = [&](const QLabel* label, const std::string& text) {
        return label->fontMetrics()
            .boundingRect(QRect(0, 0, textWidth, 0), Qt::TextWordWrap, QString::fromStdString(text))
            .height();
    };
    int most = 0;
    for (const auto& texts : allStatusTexts(bundle_))
        most = std::max(most, height(ui_->statusTitle, texts.title) +
                                  height(ui_->statusExplanation, texts.explanation));
    ui_->statusArea->setMinimumHeight(most + ui_->statusLayout->spacing());

    ui_->noticeLine->reserveSpace(width - margins.left() - margins.right());

    int rowHeight = ui_->portMappingButton->sizeHint().height() + 4;
    for (auto* text : {ui_->portMappingText, ui_->connectionText})
        text->setMinimumHeight(rowHeight);
    centralWidget()->setMinimumHeight(ui_->content->totalHeightForWidth(width));
}

}  // namespace zelvo::platform
