#include "opener/window/OpenerWindow.h"

#include <QCloseEvent>
#include <QDropEvent>
#include <QLayout>
#include <QMenu>
#include <QMimeData>
#include <QScreen>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <utility>

#include "opener/viewer/ViewerWidget.h"
#include "opener/window/OpenerTexts.h"
#include "opener/window/SessionBar.h"
#include "opener/window/StartPage.h"
#include "opener/window/StatePage.h"
#include "platform/UserDefaults.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/widgets/AccessibleRoles.h"
#include "platform/qt/widgets/Images.h"
#include "platform/qt/widgets/StatusLabel.h"
#include "sealing/HelperName.h"

namespace zelvo::opener {

namespace {

using platform::localized;

constexpr const char* NameKey = "helperName";
constexpr int IconSize = 64;
constexpr QSize FirstSize(600, 440);
/// Of the screen, that a picture may take before anybody makes the window larger.
constexpr double MostOfScreen = 0.85;
/// In milliseconds, for a sentence or two.
constexpr int TimeOfNotice = 30'000;

/// As the bytes came: a class for URLs would write some of them differently.
QString linkIn(const QMimeData& data) {
    const auto list = QString::fromUtf8(data.data("text/uri-list"));
    for (const auto& line : list.split('\n'))
        if (!line.isEmpty() && !line.startsWith('#'))
            return line;
    return data.text();
}

}  // namespace

OpenerWindow::OpenerWindow(Surroundings surroundings) : surroundings_(std::move(surroundings)) {
    platform::installAccessibleRoles();
    setAcceptDrops(true);
    setWindowIcon(platform::renderImage(surroundings_.images, "zelvo", {IconSize, IconSize}, 1));
    setWindowTitle(localized("Zelvo"));
    startPage_ = new StartPage(surroundings_.images, [this](const auto& link, const auto& name) {
        if (name != knownName()) {
            surroundings_.settings.setString(NameKey, name);
            surroundings_.name.clear();
        }
        begin(link, name);
    });
    statePage_ = new StatePage(surroundings_.images, {.cancel = [this] { session_->leave(); },
                                                      .tryAgain = [this] { session_->start(); },
                                                      .openAnother = [this] { ask(); }});
    pages_ = new QStackedWidget;
    pages_->addWidget(startPage_);
    pages_->addWidget(statePage_);
    setCentralWidget(withNotice());
    resize(FirstSize);
}

QWidget* OpenerWindow::withNotice() {
    notice_ = new platform::StatusLabel;
    notice_->setObjectName("notice");
    notice_->setTextFormat(Qt::PlainText);
    notice_->setWordWrap(true);
    notice_->setContentsMargins(12, 6, 12, 6);
    notice_->hide();
    endOfNotice_.setSingleShot(true);
    connect(&endOfNotice_, &QTimer::timeout, notice_, &QWidget::hide);
    auto* all = new QWidget;
    auto* column = new QVBoxLayout(all);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(pages_, 1);
    column->addWidget(notice_);
    return all;
}

OpenerWindow::~OpenerWindow() {
    subscription_ = {};
    session_.reset();
}

std::string OpenerWindow::knownName() const {
    if (!surroundings_.name.empty())
        return surroundings_.name;
    auto kept = surroundings_.settings.stringForKey(NameKey).value_or("");
    return sealing::isHelperName(kept) ? kept : std::string();
}

void OpenerWindow::ask() {
    subscription_ = {};
    lines_.reset();
    session_.reset();
    setWindowTitle(localized("Zelvo"));
    startPage_->ask(knownName());
    pages_->setCurrentWidget(startPage_);
}

void OpenerWindow::open(const QString& text) {
    ask();
    startPage_->takeLink(text);
}

void OpenerWindow::begin(const sealing::ShareLink& link, const std::string& name) {
    session_ = std::make_unique<Session>(surroundings_.session, link, name);
    session_->rfbBegan = [this](auto rfb) { rfbBegan(std::move(rfb)); };
    session_->start();
    if (surroundings_.say)
        lines_.emplace(*session_, surroundings_.say);
    subscription_ = session_->state().bind([this](const auto& state) { showState(state); });
}

void OpenerWindow::showState(const SessionState& state) {
    setWindowTitle(state.host.empty() ? localized("Zelvo")
                                      : isolated(state.host) + " – " + localized("Zelvo"));
    if (state.stage == Stage::Inside && hasPicture_)
        showPicture(state);
    else
        showWords(state);
    if (state.stage == Stage::Ended && surroundings_.ended)
        surroundings_.ended();
}

void OpenerWindow::showPicture(const SessionState& state) {
    viewer_->setStanding(state.controls);
    bar_->showState(state, surroundings_.viewOnly);
    bar_->setVisible(true);
    if (state.comparesAgain)
        tell(localized("This connection is a new one. Compare the digits again."), 0);
    if (pages_->currentWidget() == viewer_)
        return;
    pages_->setCurrentWidget(viewer_);
    viewer_->setFocus();
}

void OpenerWindow::showWords(const SessionState& state) {
    if (viewer_ && state.stage != Stage::Inside) {
        hasPicture_ = false;
        viewer_->stop();
        bar_->setVisible(false);
        notice_->hide();
        setWindowState(windowState() & ~Qt::WindowFullScreen);
    }
    // First, as what comes to be seen takes the focus for its first button.
    pages_->setCurrentWidget(statePage_);
    statePage_->showState(state);
}

void OpenerWindow::makeViewer() {
    viewer_ = new ViewerWidget(this, {.viewOnly = surroundings_.viewOnly});
    pages_->addWidget(viewer_);
    bar_ = new SessionBar({viewer_->keysMenu(), viewer_->pictureMenu()},
                          [this] { session_->leave(); });
    bar_->setVisible(false);
    addToolBar(bar_);
    connect(viewer_, &ViewerWidget::firstPicture, this, [this] { firstPictureCame(); });
    connect(viewer_, &ViewerWidget::ended, this, [this](const QString& why) {
        if (session_)
            session_->pictureFailed(why.toStdString());
    });
    // Whoever chose something from the bar goes on in the picture, whose keys lead out again.
    for (auto* menu : {viewer_->keysMenu(), viewer_->pictureMenu()})
        connect(menu, &QMenu::triggered, viewer_, [this] { viewer_->setFocus(); });
    // The bar is what keys reach then.
    connect(viewer_, &ViewerWidget::wayOut, bar_, [this] { bar_->takeFocus(); });
}

void OpenerWindow::rfbBegan(platform::FileDescriptor rfb) {
    if (!viewer_)
        makeViewer();
    hasPicture_ = false;
    viewer_->setHostFacts(*session_->facts());
    tell(viewer_->layoutNotice(), TimeOfNotice);
    viewer_->start(std::move(rfb));
}

void OpenerWindow::tell(const QString& notice, int milliseconds) {
    if (notice_->isVisible() && notice_->text() == notice)
        return;
    endOfNotice_.stop();
    notice_->setText(notice);
    notice_->setVisible(!notice.isEmpty());
    if (notice.isEmpty())
        return;
    notice_->announce();
    if (milliseconds > 0)
        endOfNotice_.start(milliseconds);
}

void OpenerWindow::firstPictureCame() {
    if (!session_)
        return;
    hasPicture_ = true;
    showState(session_->state().value());
    if (isMaximized() || isFullScreen())
        return;
    // So that the bars around it take nothing of the picture.
    layout()->activate();
    const auto around = size() - viewer_->size();
    const auto room = screen()->availableSize() * MostOfScreen;
    resize((viewer_->sizeHint() + around).boundedTo(room).expandedTo(size()));
}

bool OpenerWindow::takesLinks() const {
    return !session_ || session_->state().value().stage == Stage::Ended;
}

void OpenerWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (takesLinks() && (event->mimeData()->hasUrls() || event->mimeData()->hasText()))
        event->acceptProposedAction();
}

void OpenerWindow::dropEvent(QDropEvent* event) {
    event->acceptProposedAction();
    open(linkIn(*event->mimeData()));
}

void OpenerWindow::closeEvent(QCloseEvent* event) {
    if (session_)
        session_->leave();
    event->accept();
}

ExitStatus OpenerWindow::exitStatus() const {
    if (!session_)
        return ExitStatus::Done;
    const auto& state = session_->state().value();
    const auto why = state.stage == Stage::Ended ? state.ending : Ending::Left;
    return why == Ending::Left && !session_->wasInside() ? ExitStatus::GivenUp
                                                         : textsOf(why).status;
}

}  // namespace zelvo::opener
