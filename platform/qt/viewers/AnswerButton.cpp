#include "platform/qt/viewers/AnswerButton.h"

#include <QEvent>
#include <QStyleOption>
#include <QStylePainter>

namespace zelvo::platform {

void AnswerButton::setResting(bool rests) {
    if (rests == rests_)
        return;
    rests_ = rests;
    update();
}

QSize AnswerButton::sizeHint() const {
    auto metrics = fontMetrics();
    int caption = metrics.horizontalAdvance(text());
    return {caption + 2 * metrics.height(), metrics.height() * (font().bold() ? 11 : 8) / 4};
}

// Some desktops give every button a letter.
bool AnswerButton::event(QEvent* event) {
    return event->type() == QEvent::Shortcut || QPushButton::event(event);
}

void AnswerButton::paintEvent(QPaintEvent*) {
    QStyleOptionButton option;
    initStyleOption(&option);
    if (rests_) {
        option.state &= ~(QStyle::State_Enabled | QStyle::State_MouseOver | QStyle::State_Sunken);
        option.palette.setCurrentColorGroup(QPalette::Disabled);
    }
    QStylePainter(this).drawControl(QStyle::CE_PushButton, option);
}

}  // namespace zelvo::platform
