#include "opener/window/SessionBar.h"

#include <QFontDatabase>
#include <QLabel>
#include <QMenu>
#include <QToolButton>
#include <utility>

#include "opener/window/OpenerTexts.h"
#include "platform/qt/content/Localized.h"

namespace zelvo::opener {

namespace {

using platform::localized;

}  // namespace

SessionBar::SessionBar(const std::vector<QMenu*>& menus, std::function<void()> disconnect) {
    setObjectName("sessionBar");
    setWindowTitle(localized("Session"));
    setMovable(false);
    setContextMenuPolicy(Qt::PreventContextMenu);
    setToolButtonStyle(Qt::ToolButtonTextOnly);
    for (auto* menu : menus)
        addMenu(menu);

    auto* gap = new QWidget;
    gap->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    addWidget(gap);
    rights_ = addLabel("rights");
    digits_ = addLabel("sessionDigits");
    digits_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    digits_->setToolTip(digitsSentence());
    digits_->setAccessibleDescription(digitsSentence());

    auto* end = addAction(localized("Disconnect"), this, std::move(disconnect));
    end->setObjectName("disconnectAction");
    // With the keys alone, too: the picture keeps all others to itself.
    for (auto* button : findChildren<QToolButton*>())
        button->setFocusPolicy(Qt::StrongFocus);
}

void SessionBar::addMenu(QMenu* menu) {
    auto* button = new QToolButton;
    button->setText(menu->title());
    button->setMenu(menu);
    button->setPopupMode(QToolButton::InstantPopup);
    addWidget(button);
    if (!first_)
        first_ = button;
}

void SessionBar::takeFocus() {
    first_->setFocus();
}

QLabel* SessionBar::addLabel(const char* name) {
    auto* label = new QLabel;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setContentsMargins(8, 0, 8, 0);
    addWidget(label);
    return label;
}

void SessionBar::showState(const SessionState& state, bool viewOnly) {
    rights_->setText(state.controls && !viewOnly ? localized("You control the screen")
                                                 : localized("You can only watch"));
    const auto digits = QString::fromStdString(state.digits);
    digits_->setText(digits);
    digits_->setAccessibleName(localized("Digits to compare") + ": " + digits);
}

}  // namespace zelvo::opener
