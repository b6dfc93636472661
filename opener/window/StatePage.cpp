#include "opener/window/StatePage.h"

#include <QEvent>
#include <QFontDatabase>
#include <QLabel>
#include <QPushButton>

#include "opener/window/OpenerTexts.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/widgets/ImageView.h"
#include "platform/qt/widgets/Spinner.h"
#include "platform/qt/widgets/StatePanel.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::opener {

namespace {

using platform::localized;

constexpr double DigitsScale = 2.4;
constexpr int SpinnerSize = 18;

QLabel* makeWrappedLabel(const char* name, const QString& text) {
    auto* label = new QLabel(text);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

const char* imageOf(const SessionState& state) {
    switch (state.stage) {
        case Stage::Asked:
        case Stage::InLine:
            return "state-asking";
        case Stage::Inside:
            return "state-connected";
        default:
            return "zelvo";
    }
}

QString groundOf(const SessionState& state) {
    return state.stage == Stage::Asked ? "asking" : state.stage == Stage::Inside ? "connected" : "";
}

}  // namespace

StatePage::StatePage(const QString& images, const Listener& listener) {
    auto* column = makeColumn(*this);
    header_ = addHeader(*column, images, "state");
    addDigits(*column);
    column->addStretch(1);
    addButtons(*column, listener);
}

void StatePage::addDigits(QBoxLayout& column) {
    auto* panel = addPanel(column, digitsPanel_);
    digits_ = new QLabel;
    digits_->setObjectName("digits");
    digits_->setAlignment(Qt::AlignCenter);
    digits_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    auto font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(this->font().pointSizeF() * DigitsScale);
    font.setBold(true);
    digits_->setFont(font);
    warning_ = makeWrappedLabel(
        "addressWarning",
        localized("The sharing service has not seen the computer at the address that it names. "
                  "Compare the digits before you trust what you see."));
    panel->addWidget(digits_);
    panel->addWidget(makeWrappedLabel("digitsSentence", digitsSentence()));
    panel->addWidget(warning_);
}

void StatePage::addButtons(QBoxLayout& column, const Listener& listener) {
    auto add = [&](QBoxLayout& row, const char* name, const char* caption, auto action) {
        auto* button = new QPushButton(localized(caption));
        button->setObjectName(name);
        button->setAutoDefault(true);
        connect(button, &QPushButton::clicked, this, action);
        row.addWidget(button);
        return button;
    };
    spinner_ = new platform::Spinner;
    spinner_->setFixedSize(SpinnerSize, SpinnerSize);
    matchSpinner();
    auto* row = new QHBoxLayout;
    row->setSpacing(12);
    row->addWidget(spinner_);
    row->addStretch(1);
    openAnother_ = add(*row, "openAnotherButton", "Open Another Link", listener.openAnother);
    cancel_ = add(*row, "cancelButton", "Cancel", listener.cancel);
    cancel_->setShortcut(Qt::Key_Escape);
    tryAgain_ = add(*row, "tryAgainButton", "Try Again", listener.tryAgain);
    column.addLayout(row);
}

// It is made for panels, whose ground is another.
void StatePage::matchSpinner() {
    auto colors = palette();
    colors.setColor(QPalette::Base, colors.color(QPalette::Window));
    spinner_->setPalette(colors);
}

void StatePage::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && spinner_)
        matchSpinner();
}

void StatePage::showState(const SessionState& state) {
    const auto texts = textsOf(state);
    const bool isNews = header_.sentence->text() != texts.sentence;
    header_.title->setText(texts.title);
    header_.sentence->setText(texts.sentence);
    header_.image->setImage(imageOf(state));
    header_.panel->setState(groundOf(state));

    const auto digits = QString::fromStdString(state.digits);
    digits_->setText(digits);
    digits_->setAccessibleName(localized("Digits to compare") + ": " + digits);
    digitsPanel_->setVisible(!digits.isEmpty());
    warning_->setVisible(!state.addressIsProven);

    const bool isOver = state.stage == Stage::Ended;
    spinner_->setSpinning(!isOver);
    cancel_->setVisible(!isOver);
    tryAgain_->setVisible(isOver);
    openAnother_->setVisible(isOver);
    if (isOver && !tryAgain_->hasFocus() && !openAnother_->hasFocus())
        tryAgain_->setFocus();
    else if (!isOver && (stage_ != state.stage || !cancel_->hasFocus()))
        giveFocus(state.stage == Stage::Returning || state.stage == Stage::Inside);
    stage_ = state.stage;
    // Not at each second of a countdown.
    if (isNews) {
        header_.title->announce();
        header_.sentence->announce();
    }
}

/// Whoever was inside may still be typing: what they mean for the host is to press nothing here.
void StatePage::giveFocus(bool mayBeTyping) {
    cancel_->setShortcut(mayBeTyping ? QKeySequence() : Qt::Key_Escape);
    if (mayBeTyping)
        setFocus();
    else
        cancel_->setFocus();
}

}  // namespace zelvo::opener
