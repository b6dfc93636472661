#include "opener/window/SessionBar.h"

#include <QFontDatabase>
#include <QLabel>
#include <QMenu>
#include <QToolButton>

#include "opener/window/OpenerTexts.h"
#include "platform/qt/content/Localized.h"

namespace zelvo::opener {

namespace {

using platform::localized;

}  // namespace

SessionBar::SessionBar(QMenu* keys, const Listener& listener) {
    setObjectName("sessionBar");
    setWindowTitle(localized("Session"));
    setMovable(false);
    setContextMenuPolicy(Qt::PreventContextMenu);
    setToolButtonStyle(Qt::ToolButtonTextOnly);

    auto* keysButton = new QToolButton;
    keysButton->setObjectName("keysButton");
    keysButton->setText(localized("Keys"));
    keysButton->setMenu(keys);
    keysButton->setPopupMode(QToolButton::InstantPopup);
    addWidget(keysButton);

    auto addSwitch = [&](const char* name, const char* caption, const auto& toggled) {
        auto* action = addAction(localized(caption));
        action->setObjectName(name);
        action->setCheckable(true);
        connect(action, &QAction::toggled, this, toggled);
        return action;
    };
    addSwitch("fitAction", "Fit to Window", listener.setFits)->setChecked(true);
    fullScreen_ = addSwitch("fullScreenAction", "Full Screen", listener.setFullScreen);

    auto* gap = new QWidget;
    gap->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    addWidget(gap);
    rights_ = addLabel("rights");
    digits_ = addLabel("sessionDigits");
    digits_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    digits_->setToolTip(digitsSentence());
    digits_->setAccessibleName(localized("Digits to compare"));
    digits_->setAccessibleDescription(digitsSentence());

    auto* disconnect = addAction(localized("Disconnect"), this, listener.disconnect);
    disconnect->setObjectName("disconnectAction");
    // With the keys alone, too: the picture keeps all others to itself.
    for (auto* button : findChildren<QToolButton*>())
        button->setFocusPolicy(Qt::StrongFocus);
}

QLabel* SessionBar::addLabel(const char* name) {
    auto* label = new QLabel;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setContentsMargins(8, 0, 8, 0);
    addWidget(label);
    return label;
}

void SessionBar::showState(const SessionState& state) {
    rights_->setText(rightsText(state));
    digits_->setText(QString::fromStdString(state.digits));
}

void SessionBar::setFullScreen(bool isFull) {
    fullScreen_->setChecked(isFull);
}

}  // namespace zelvo::opener
