#include "opener/viewer/ViewerWidget.h"

#include <QAction>
#include <QActionGroup>
#include <QClipboard>
#include <QGuiApplication>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <utility>

#include "opener/viewer/HostKeysMenu.h"
#include "opener/viewer/OwnLayout.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/content/ShownText.h"

namespace zelvo::opener {

namespace {

using platform::localized;

QString sentence(HostConnection::End end) {
    switch (end) {
        case HostConnection::End::Nonsense:
            return localized("viewer-ended-nonsense");
        case HostConnection::End::Silence:
            return localized("viewer-ended-silence");
        case HostConnection::End::Closed:
            break;
    }
    return localized("viewer-ended-closed");
}

}  // namespace

ViewerWidget::ViewerWidget(QWidget* parent, Options options)
    : QAbstractScrollArea(parent),
      options_(options),
      keysMenu_(new HostKeysMenu({.strike =
                                      [this](const auto& keysyms) {
                                          releaseInput();
                                          if (sends())
                                              keyboard_.strike(keysyms);
                                      },
                                  .visit = [this](const auto& corner) { visit(corner); }},
                                 this)),
      keyboard_([this](std::uint32_t keysym, bool isDown) {
          if (connection_)
              connection_->key(keysym, isDown);
      }) {
    setFocusPolicy(Qt::StrongFocus);
    setFrameShape(QFrame::NoFrame);
    setAccessibleName(localized("viewer-picture"));
    setAccessibleDescription(localized("viewer-way-out"));
    viewport()->setMouseTracking(true);
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    makePictureMenu();
    setFitsWindow(true);
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this, [this] {
        hasNewText_ = QGuiApplication::clipboard()->text() != hostText_;
        offerClipboard();
    });
    adjust();
}

ViewerWidget::~ViewerWidget() {
    if (grabsKeyboard_)
        releaseKeyboard();
}

void ViewerWidget::start(platform::FileDescriptor rfb) {
    stop();
    connection_ = std::make_unique<HostConnection>(std::move(rfb));
    auto* connection = connection_.get();
    connect(connection, &HostConnection::changed, this, &ViewerWidget::changed);
    connect(connection, &HostConnection::resized, connection, [this](QSize size) {
        pictureSize_ = size;
        place();
    });
    connect(connection, &HostConnection::cursorChanged, this, &ViewerWidget::takeCursor);
    connect(connection, &HostConnection::pointerMoved, connection, [this](QPoint position) {
        showPart(hostPointerPart());
        hostPointer_ = position;
        showPart(hostPointerPart());
    });
    connect(connection, &HostConnection::clipboardCame, this, &ViewerWidget::takeClipboard);
    // What one has said that was stopped since is not heard any more.
    connect(connection, &HostConnection::ended, connection, [this](HostConnection::End end) {
        hasEnded_ = true;
        adjust();
        emit ended(sentence(end));
    });
    connection->begin();
    adjust();
}

void ViewerWidget::stop() {
    releaseInput();
    connection_.reset();
    hasEnded_ = hasPicture_ = hasNewText_ = false;
    hostText_.clear();
    cursor_ = {};
    hostPointer_ = {-1, -1};
    pictureSize_ = {};
    place();
    adjust();
}

void ViewerWidget::setStanding(bool controls) {
    if (controls_ && !controls)
        releaseInput();
    controls_ = controls;
    adjust();
}

void ViewerWidget::setHostFacts(const HostFacts& facts) {
    const auto theirs = platform::shownLine(facts.layout);
    const auto ours = ownLayout();
    layoutNotice_.clear();
    if (!theirs.isEmpty() && !ours.isEmpty() && theirs != ours) {
        layoutNotice_ = localized("viewer-layout");
        // From behind, since a name may hold what stands for one.
        for (const auto& layout : {ours, theirs})
            layoutNotice_.replace(layoutNotice_.lastIndexOf("%@"), 2, layout);
    }
    keysMenu_->setFacts(facts, layoutNotice_);
}

QMenu* ViewerWidget::keysMenu() const {
    return keysMenu_;
}

// The picture.

QSize ViewerWidget::sizeHint() const {
    return pictureSize_.isEmpty() ? QSize(960, 600) : (QSizeF(pictureSize_) / ratio()).toSize();
}

void ViewerWidget::makePictureMenu() {
    pictureMenu_ = new QMenu(localized("viewer-view"), this);
    auto* sizes = new QActionGroup(pictureMenu_);
    for (bool fits : {true, false}) {
        auto* action = pictureMenu_->addAction(localized(fits ? "viewer-fit" : "viewer-actual"));
        sizes->addAction(action);
        action->setCheckable(true);
        action->setChecked(fits);
        connect(action, &QAction::triggered, this, [this, fits] { setFitsWindow(fits); });
        // Also where somebody else has set it.
        connect(pictureMenu_, &QMenu::aboutToShow, action,
                [this, action, fits] { action->setChecked(fits == fitsWindow_); });
    }
    pictureMenu_->addSeparator();
    auto* full = pictureMenu_->addAction(localized("viewer-full-screen"));
    full->setCheckable(true);
    connect(full, &QAction::triggered, this, &ViewerWidget::setFullScreen);
    connect(pictureMenu_, &QMenu::aboutToShow, full,
            [this, full] { full->setChecked(window()->isFullScreen()); });
}

void ViewerWidget::setFullScreen(bool isFull) {
    window()->setWindowState(window()->windowState().setFlag(Qt::WindowFullScreen, isFull));
}

void ViewerWidget::setFitsWindow(bool fits) {
    fitsWindow_ = fits;
    const auto policy = fits ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded;
    setHorizontalScrollBarPolicy(policy);
    setVerticalScrollBarPolicy(policy);
    place();
}

void ViewerWidget::place() {
    const auto view = (QSizeF(viewport()->size()) * ratio()).toSize();
    auto measure = [](QScrollBar& bar, int shown, int room) {
        bar.setRange(0, std::max(0, shown - room));
        bar.setPageStep(room);
        bar.setSingleStep(std::max(1, room / 20));
    };
    measure(*horizontalScrollBar(), fitsWindow_ ? 0 : pictureSize_.width(), view.width());
    measure(*verticalScrollBar(), fitsWindow_ ? 0 : pictureSize_.height(), view.height());
    place_ = fitsWindow_ ? PicturePlace::fitting(pictureSize_, view)
                         : PicturePlace::actual(
                               pictureSize_, view,
                               {horizontalScrollBar()->value(), verticalScrollBar()->value()});
    viewport()->update();
}

void ViewerWidget::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    place();
}

void ViewerWidget::scrollContentsBy(int, int) {
    place();
}

void ViewerWidget::changed() {
    if (!connection_)
        return;
    for (const auto& part : connection_->takeDamage())
        showPart(part);
    if (!std::exchange(hasPicture_, true))
        emit firstPicture();
}

void ViewerWidget::showPart(const QRect& hostPart) {
    if (hostPart.isEmpty())
        return;
    const auto part = place_.viewPart(hostPart);
    const auto scale = 1 / ratio();
    viewport()->update(
        QRectF(part.x() * scale, part.y() * scale, part.width() * scale, part.height() * scale)
            .toAlignedRect());
}

void ViewerWidget::paintEvent(QPaintEvent* event) {
    QPainter painter(viewport());
    painter.scale(1 / ratio(), 1 / ratio());
    const auto& target = place_.inView();
    bool isShown = false;
    auto draw = [&](const QImage& picture) {
        // Between the host's new size and word of it here, there is nothing to show.
        if (picture.size() != pictureSize_ || !hasPicture_)
            return;
        isShown = true;
        if (place_.isScaled()) {
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            painter.drawImage(target, picture);
        } else {
            painter.drawImage(target.topLeft(), picture);
        }
    };
    if (connection_)
        connection_->look(draw);
    if (isShown && showsHostPointer()) {
        const auto tip = place_.viewPart(QRect(hostPointer_, QSize(1, 1))).center();
        painter.drawImage(tip - hotSpot_, cursor_);
    }
    auto around = QRegion(event->rect());
    if (isShown)
        around -= QRectF(target.x() / ratio(), target.y() / ratio(), target.width() / ratio(),
                         target.height() / ratio())
                      .toRect();
    painter.resetTransform();
    for (const auto& part : around)
        painter.fillRect(part, palette().color(QPalette::Dark));
}

// Who does not point sees where the host does.
bool ViewerWidget::showsHostPointer() const {
    return hostPointer_.x() >= 0 && !cursor_.isNull() && !(sends() && isPointerInside_);
}

QRect ViewerWidget::hostPointerPart() const {
    if (hostPointer_.x() < 0 || cursor_.isNull())
        return {};
    // The shape is not scaled with the picture.
    const auto reach = std::max(cursor_.width(), cursor_.height()) *
                       std::max(1, pictureSize_.width() / std::max(1, place_.inView().width()) + 1);
    return QRect(hostPointer_, QSize(1, 1)).adjusted(-reach, -reach, reach, reach);
}

void ViewerWidget::takeCursor(const QImage& shape, QPoint hotSpot) {
    showPart(hostPointerPart());
    cursor_ = shape;
    hotSpot_ = hotSpot;
    showPart(hostPointerPart());
    showCursor();
}

void ViewerWidget::showCursor() {
    if (sends() && !cursor_.isNull())
        viewport()->setCursor(QCursor(QPixmap::fromImage(cursor_), hotSpot_.x(), hotSpot_.y()));
    else
        viewport()->unsetCursor();
}

}  // namespace zelvo::opener
