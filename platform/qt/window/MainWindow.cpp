#include "platform/qt/window/MainWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCloseEvent>
#include <QFontDatabase>
#include <QMenu>
#include <QMenuBar>
#include <algorithm>

#include "platform/ApplicationDelegate.h"
#include "platform/Bundle.h"
#include "platform/MainWindowModel.h"
#include "platform/Preferences.h"
#include "platform/Viewers.h"
#include "platform/WayIn.h"
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
const QColor EndingGround(0xC6, 0x28, 0x28);
const QColor EdgedBox(0xB4, 0xB4, 0xB4);
constexpr double LargestLink = 1.25;
constexpr double SmallestLink = 0.85;

}  // namespace

MainWindow::MainWindow(QWidget* content, const Surroundings& surroundings)
    : model_(surroundings.model),
      delegate_(surroundings.delegate),
      bundle_(surroundings.bundle),
      viewers_(surroundings.viewers),
      wayIn_(surroundings.wayIn),
      preferences_(surroundings.preferences),
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

    makeMainMenu(
        *this, model_, surroundings.application, surroundings.loop, [this] { copyWebLink(); },
        [this] { disconnectEverybody(); });
    ui_->viewerLines->attach(viewers_, images);
    connectControls();
    connectSettings();
    applyLook();
    subscriptions_ = bindControls(
        *this, {model_, surroundings.explanations, bundle_, viewers_, wayIn_, preferences_});
    subscriptions_.push_back(model_.isQuitting().subscribe([this](bool quits) {
        setControlsEnabled(!quits);
        if (quits)
            ui_->noticeLine->clear();
    }));
    reserveSpace();
    resize(minimumWidth(), centralWidget()->minimumHeight());
    content->installEventFilter(this);
    ui_->statePanel->installEventFilter(this);
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
    connect(ui_->linkText, &QLineEdit::textChanged, this, [this] {
        fitLink();
        ui_->linkText->setCursorPosition(0);
    });
    connect(ui_->newLinkButton, &QPushButton::clicked, this, [this] { model_.makeNewLink(); });
    connect(ui_->portMappingButton, &QPushButton::clicked, this, [this] { model_.startOver(); });
    ui_->disconnectButton->setAction([this] { disconnectEverybody(); });
    connect(ui_->showQuestionButton, &QPushButton::clicked, this, [this] {
        if (showQuestion_)
            showQuestion_();
    });
    connect(ui_->askAgainButton, &QPushButton::clicked, this,
            [this] { viewers_.setRefusesEverybody(false); });
}

void MainWindow::connectSettings() {
    const auto connectSwitch = [this](auto* control, auto pressed, RelayUse wanted) {
        connect(control, pressed, this, [this, control, wanted](bool isWanted) {
            // The user may yet be asked, and say no.
            control->setChecked(wayIn_.relayUse().value() == wanted);
            model_.changeWay([this, use = isWanted ? wanted : RelayUse::WhereNeeded] {
                wayIn_.setRelayUse(use);
            });
        });
    };
    connect(ui_->useRelayButton, &QPushButton::clicked, this,
            [this] { model_.changeWay([this] { wayIn_.setRelayUse(RelayUse::Preferred); }); });
    connectSwitch(ui_->onlyABrowser, &QCheckBox::clicked, RelayUse::Preferred);
    connectSwitch(findChild<QAction*>("actionOnlyABrowser"), &QAction::triggered,
                  RelayUse::Preferred);
    connectSwitch(findChild<QAction*>("actionNeverARelay"), &QAction::triggered, RelayUse::Never);

    const auto askOnly = [this](bool only) { viewers_.setAdmitsOnlyLinkHolders(only); };
    connect(ui_->onlyLinkHolders, &QCheckBox::clicked, this, askOnly);
    connect(findChild<QAction*>("actionOnlyLinkHolders"), &QAction::triggered, this, askOnly);
    connect(findChild<QAction*>("actionNewLinks"), &QAction::triggered, this,
            [this](bool makes) { preferences_.setMakesNewLinks(makes); });
    connect(findChild<QAction*>("actionTrayIcon"), &QAction::triggered, this,
            [this](bool shows) { preferences_.setShowsTrayIcon(shows); });
}

// At once, and then by the system's own means, which take longer.
void MainWindow::disconnectEverybody() {
    viewers_.disconnectEverybody();
    model_.closeConnection();
}

void MainWindow::copyWebLink() {
    const auto link = wayIn_.webLink(model_.sharedLink().value());
    if (link.empty())
        return;
    QGuiApplication::clipboard()->setText(QString::fromStdString(link));
    say(Copied);
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
    } else if (event->type() == QEvent::WindowStateChange) {
        // Whatever grows a minimised window, the toolkit brings back by that, with the keys of what
        // the user types into.
        layout()->setSizeConstraint(isMinimized() ? QLayout::SetNoConstraint
                                                  : QLayout::SetDefaultConstraint);
    }
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    fitLink();
    reserveSpace();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == centralWidget() && event->type() == QEvent::LayoutRequest) {
        // What lies in layouts within is measured anew by this alone.
        ui_->content->activate();
        reserveSpace();
    } else if (watched == ui_->statePanel && event->type() == QEvent::PaletteChange) {
        applyLook();
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::applyLook() {
    QFont title = font();
    title.setPointSizeF(title.pointSizeF() * 1.5);
    title.setBold(true);
    ui_->statusTitle->setFont(title);

    fitLink();

    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    ui_->versionInfo->setFont(small);
    ui_->whoMayAskText->setFont(small);
    ui_->wayInText->setFont(small);

    for (QLabel* label : std::initializer_list<QLabel*>{ui_->statusExplanation, ui_->whoMayAskText,
                                                        ui_->wayInText, ui_->versionInfo}) {
        bool isOnState = label == ui_->statusExplanation;
        QPalette soft = isOnState ? ui_->statePanel->palette() : palette();
        QColor color = soft.color(QPalette::WindowText);
        color.setAlphaF(isOnState && !ui_->statePanel->state().isEmpty() ? 1.0F : 0.72F);
        soft.setColor(QPalette::WindowText, color);
        label->setPalette(soft);
    }
    QPalette alarming = palette();
    alarming.setColor(QPalette::Highlight, EndingGround);
    alarming.setColor(QPalette::HighlightedText, Qt::white);
    ui_->disconnectButton->setPalette(alarming);

    // The edge of its box is drawn darker than this, and has to be seen on light and on dark.
    QPalette edged = palette();
    edged.setColor(QPalette::Window, EdgedBox);
    for (auto* boxes : std::initializer_list<QWidget*>{ui_->onlyLinkHolders, ui_->onlyABrowser,
                                                       findChild<QMenu*>("settingsMenu")})
        boxes->setPalette(edged);

    QPalette clear = palette();
    clear.setColor(QPalette::Base, Qt::transparent);
    ui_->linkText->setPalette(clear);
}

// A link of the usual length is seen whole.
void MainWindow::fitLink() {
    QFont link = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    link.setPointSizeF(font().pointSizeF() * LargestLink);
    const auto around = ui_->content->contentsMargins() + ui_->linkLayout->contentsMargins();
    const double room = width() - around.left() - around.right() - 8;
    const double wanted = QFontMetricsF(link).horizontalAdvance(ui_->linkText->text());
    const double scale = wanted > room ? LargestLink * room / wanted : LargestLink;
    link.setPointSizeF(font().pointSizeF() * std::max(scale, SmallestLink));
    ui_->linkText->setFont(link);
}

void MainWindow::setControlsEnabled(bool enabled) {
    for (auto* part : std::initializer_list<QWidget*>{menuBar(), ui_->linkPanel, ui_->statusPanel,
                                                      ui_->viewersPanel})
        part->setEnabled(enabled);
}

// Room for the longest headline and explanation, so that nothing moves when the status changes, and
// for every line that wraps at this width.
void MainWindow::reserveSpace() {
    // Digits are alike in every script; an average character of a Chinese font is twice as wide.
    setMinimumWidth(fontMetrics().horizontalAdvance("0123456789") * WidthInDigits / 10);
    int width = std::max(this->width(), minimumWidth());
    auto margins = ui_->content->contentsMargins();
    auto inner = ui_->header->contentsMargins();
    int textWidth = width - margins.left() - margins.right() - inner.left() - inner.right() -
                    ui_->appIcon->width() - ui_->header->spacing();
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
