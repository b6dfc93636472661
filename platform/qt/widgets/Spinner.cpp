#include "platform/qt/widgets/Spinner.h"

#include <QPainter>
#include <QTimerEvent>
#include <QWindow>
#include <cmath>
#include <numbers>

namespace zelvo::platform {

namespace {

constexpr int Dots = 8;
// Each step takes a conversation with the display.
constexpr int SlowerInBackground = 4;

}  // namespace

Spinner::Spinner(QWidget* parent) : QWidget(parent) {
    // A step then paints nothing of what lies below.
    setAttribute(Qt::WA_OpaquePaintEvent);
    auto policy = sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    setSizePolicy(policy);
    hide();
}

void Spinner::setSpinning(bool spinning) {
    if (spinning == spinning_)
        return;
    spinning_ = spinning;
    setVisible(spinning);
    startOrStop();
}

void Spinner::setStepInterval(int milliseconds) {
    stepInterval_ = milliseconds;
    timer_.stop();
    startOrStop();
}

bool Spinner::canBeSeen() const {
    const QWindow* handle = window()->windowHandle();
    return isVisible() && !window()->isMinimized() && handle && handle->isExposed();
}

int Spinner::interval() const {
    return isActiveWindow() ? stepInterval_ : stepInterval_ * SlowerInBackground;
}

void Spinner::startOrStop() {
    bool turns = spinning_ && canBeSeen();
    if (turns && !timer_.isActive())
        timer_.start(interval(), Qt::CoarseTimer, this);
    else if (!turns)
        timer_.stop();
}

void Spinner::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (QWindow* handle = window()->windowHandle())
        handle->installEventFilter(this);
    startOrStop();
}

bool Spinner::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Expose)
        startOrStop();
    return QWidget::eventFilter(watched, event);
}

void Spinner::timerEvent(QTimerEvent* event) {
    if (event->timerId() != timer_.timerId()) {
        QWidget::timerEvent(event);
        return;
    }
    startOrStop();
    if (timer_.isActive()) {
        step_ = (step_ + 1) % Dots;
        update();
    }
}

void Spinner::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::EnabledChange)
        steps_.clear();
    if (event->type() == QEvent::ActivationChange && timer_.isActive())
        timer_.start(interval(), Qt::CoarseTimer, this);
}

void Spinner::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    startOrStop();
    if (steps_.empty() || steps_.front().devicePixelRatio() != devicePixelRatio()) {
        steps_.clear();
        for (int step = 0; step < Dots; ++step)
            steps_.push_back(drawStep(step));
    }
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawPixmap(0, 0, steps_[static_cast<std::size_t>(step_)]);
}

QPixmap Spinner::drawStep(int step) const {
    QPixmap pixmap(size() * devicePixelRatio());
    pixmap.setDevicePixelRatio(devicePixelRatio());
    pixmap.fill(palette().color(QPalette::Base));
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.translate(rect().toRectF().center());
    double radius = std::min(width(), height()) / 2.0;
    double dot = radius * 0.19;
    for (int i = 0; i < Dots; ++i) {
        QColor color = palette().color(QPalette::WindowText);
        int age = (step - i + Dots) % Dots;
        color.setAlphaF(static_cast<float>(std::max(0.14, 0.85 - age * 0.13)));
        painter.setBrush(color);
        double angle = 2 * std::numbers::pi * i / Dots - std::numbers::pi / 2;
        painter.drawEllipse(
            QPointF(std::cos(angle) * (radius - dot), std::sin(angle) * (radius - dot)), dot, dot);
    }
    return pixmap;
}

}  // namespace zelvo::platform
