#include "platform/qt/viewers/QuestionDialog.h"

#include <QAccessible>
#include <QApplication>
#include <QCloseEvent>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QLabel>
#include <QVBoxLayout>
#include <QWindow>
#include <algorithm>

#include "platform/qt/content/Localized.h"
#include "platform/qt/content/ShownText.h"
#include "platform/qt/content/StatusTexts.h"
#include "platform/qt/viewers/AnswerButton.h"
#include "platform/qt/viewers/KeysElsewhere.h"
#include "platform/qt/viewers/ViewerTexts.h"
#include "platform/qt/widgets/ImageView.h"
#include "platform/qt/widgets/Images.h"
#include "platform/qt/widgets/Panel.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::platform {

namespace {

constexpr int WidthInDigitsOfQuestion = 60;

ImageView* makeImage(const QString& folder, const char* name, int size) {
    auto* view = new ImageView;
    view->setFolder(folder);
    view->setImage(name);
    view->setFixedSize(size, size);
    return view;
}

template <typename Label>
Label* makeLabel(const char* name) {
    auto* label = new Label;
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

QFont scaled(QFont font, qreal factor, bool bold) {
    font.setPointSizeF(font.pointSizeF() * factor);
    font.setBold(bold);
    return font;
}

}  // namespace

QuestionDialog::QuestionDialog(const QString& images, AnswerGuard::Clock clock, Listener listener)
    : QDialog(nullptr, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                           Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint),
      guard_(std::move(clock)),
      listener_(std::move(listener)) {
    setObjectName("questionDialog");
    setWindowTitle(localized("Zelvo"));
    setWindowIcon(renderImage(images, "zelvo", {64, 64}, 1));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 18);
    layout->setSpacing(16);
    addWords(*layout, images);
    addButtons(*layout);
    applyLook();
    takeKeys(false);
    resting_.setTimerType(Qt::PreciseTimer);
    resting_.setSingleShot(true);
    connect(&resting_, &QTimer::timeout, this, [this] { showRest(); });
    connect(&seconds_, &QTimer::timeout, this, [this] { countDown(); });
}

QuestionDialog::~QuestionDialog() {
    takeBack();
}

void QuestionDialog::addWords(QBoxLayout& layout, const QString& images) {
    title_ = makeLabel<StatusLabel>("questionTitle");
    address_ = makeLabel<StatusLabel>("questionAddress");
    proof_ = makeLabel<StatusLabel>("questionProof");
    encryption_ = makeLabel<StatusLabel>("questionEncryption");
    auto* words = new QVBoxLayout;
    words->setSpacing(6);
    for (auto* label : {title_, address_, proof_, encryption_})
        words->addWidget(label);
    auto* top = new QHBoxLayout;
    top->setSpacing(18);
    top->addWidget(makeImage(images, "state-asking", 64), 0, Qt::AlignTop);
    top->addLayout(words, 1);
    layout.addLayout(top);
    addDigits(layout);

    auto* panel = new Panel;
    auto* warning = new QHBoxLayout(panel);
    warning->setContentsMargins(16, 14, 16, 14);
    warning->setSpacing(14);
    advice_ = makeLabel<QLabel>("questionAdvice");
    advice_->setText(
        localized("No bank, no company and no authority ever asks for this. Let in only somebody "
                  "whom you have asked for help yourself."));
    warning->addWidget(makeImage(images, "NSCaution", 32));
    warning->addWidget(advice_, 1);
    layout.addWidget(panel);

    onlyWatching_ = makeLabel<QLabel>("questionOnlyWatching");
    onlyWatching_->setText(localized(NobodyCanHelp));
    layout.addWidget(onlyWatching_);

    countdown_ = makeLabel<QLabel>("questionCountdown");
    waiting_ = makeLabel<QLabel>("questionWaiting");
    for (auto* label : {countdown_, waiting_})
        label->setWordWrap(false);
    waiting_->setAlignment(Qt::AlignTrailing | Qt::AlignVCenter);
    auto* line = new QHBoxLayout;
    line->addWidget(countdown_);
    line->addWidget(waiting_);
    layout.addLayout(line);
}

void QuestionDialog::addDigits(QBoxLayout& layout) {
    digitsPanel_ = new Panel;
    auto* column = new QVBoxLayout(digitsPanel_);
    column->setContentsMargins(16, 12, 16, 12);
    digits_ = makeLabel<StatusLabel>("questionDigits");
    digits_->setAlignment(Qt::AlignCenter);
    comparing_ = makeLabel<QLabel>("questionComparing");
    comparing_->setText(
        localized("Compare these digits by telephone with those that your helper sees. If they "
                  "differ, refuse: somebody is in between."));
    column->addWidget(digits_);
    column->addWidget(comparing_);
    layout.addWidget(digitsPanel_);
}

void QuestionDialog::addButtons(QBoxLayout& layout) {
    help_ = addButton("questionHelp", "Let them help", [this] { answer(ViewerAnswer::Control); });
    watch_ = addButton("questionWatch", "Only watch", [this] { answer(ViewerAnswer::Watch); });
    refuse_ = addButton("questionRefuse", "Refuse", [this] { answer(ViewerAnswer::Refuse); });
    refuse_->setDefault(true);
    auto* row = new QHBoxLayout;
    row->setSpacing(12);
    for (auto* button : {help_, watch_, refuse_})
        row->addWidget(button, 1);
    layout.addLayout(row);
    setCanHelp(true);
    everybody_ =
        addButton("questionRefuseEverybody", "Refuse everybody until the next start", [this] {
            answer(ViewerAnswer::Refuse);
            listener_.refuseEverybody();
        });
    layout.addWidget(everybody_, 0, Qt::AlignTrailing);
}

QPushButton* QuestionDialog::addButton(const char* name, const char* caption,
                                       std::function<void()> action) {
    auto* button = new AnswerButton(localized(caption));
    button->setObjectName(name);
    button->setAutoDefault(false);
    // A screen reader presses without a mouse or a key.
    connect(button, &QPushButton::clicked, this, [this, action = std::move(action)] {
        if (guard_.isLive() && !isAnswered_)
            action();
    });
    buttons_.push_back(button);
    return button;
}

void QuestionDialog::setCanHelp(bool canHelp) {
    help_->setVisible(canHelp);
    onlyWatching_->setVisible(!canHelp);
}

void QuestionDialog::ask(const ViewerQuestion& question) {
    keysMayLetIn_ = false;
    takeKeys(false);
    put(question);
    show();
    raise();
}

void QuestionDialog::askWithKeys(const ViewerQuestion& question) {
    takeKeys(true);
    put(question);
    keysMayLetIn_ = true;
    refuse_->setFocus();
    showNormal();
    raise();
    activateWindow();
}

void QuestionDialog::put(const ViewerQuestion& question) {
    isAnswered_ = false;
    update(question);
    rest();
    // What lies in layouts within is measured anew by this alone.
    layout()->activate();
    setFixedHeight(layout()->totalHeightForWidth(width()));
    // What is shown anew is announced by the toolkit.
    if (!isVisible())
        return;
    title_->announce();
    address_->announce();
}

void QuestionDialog::update(const ViewerQuestion& question) {
    question_ = question;
    title_->setText(titleText(question));
    address_->setText(addressText(question));
    proof_->setText(proofText(question));
    digits_->setText(shownLine(question.digits));
    digitsPanel_->setVisible(!question.digits.empty());
    encryption_->setText(encryptionText(question));
    waiting_->setText(question.waiting
                          ? localizedWith("Also waiting: %@", QString::number(question.waiting))
                          : QString());
    setAccessibleName(title_->text());
    QStringList spoken{address_->text() + '.', proof_->text(), encryption_->text()};
    if (!question.digits.empty())
        spoken << digits_->text() + '.' << comparing_->text();
    spoken << advice_->text();
    if (onlyWatching_->isVisibleTo(this))
        spoken << onlyWatching_->text();
    setAccessibleDescription(spoken.join(' '));
    countDown();
}

void QuestionDialog::takeBack() {
    isAnswered_ = true;
    hide();
}

void QuestionDialog::answer(ViewerAnswer answer) {
    if (isAnswered_)
        return;
    auto viewer = question_.id;
    takeBack();
    listener_.answer(viewer, answer);
}

// Refusing is what closing means at any time; it lets nobody in.
void QuestionDialog::closeEvent(QCloseEvent* event) {
    event->ignore();
    answer(ViewerAnswer::Refuse);
}

void QuestionDialog::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    if (event->spontaneous())
        return;
    listener_.shown(true);
    qApp->installEventFilter(this);
    keys_ = std::make_unique<KeysElsewhere>([this] { rest(); });
    seconds_.start(250);
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

void QuestionDialog::hideEvent(QHideEvent* event) {
    QDialog::hideEvent(event);
    if (event->spontaneous())
        return;
    seconds_.stop();
    keys_.reset();
    qApp->removeEventFilter(this);
    listener_.shown(false);
}

// Where keys go is the user's to say, as here.
void QuestionDialog::mousePressEvent(QMouseEvent* event) {
    QDialog::mousePressEvent(event);
    if (!guard_.isLive())
        return;
    takeKeys(true);
    activateWindow();
}

void QuestionDialog::changeEvent(QEvent* event) {
    QDialog::changeEvent(event);
    if (title_ && (event->type() == QEvent::FontChange || event->type() == QEvent::PaletteChange))
        applyLook();
}

void QuestionDialog::takeKeys(bool takes) {
    setAttribute(Qt::WA_ShowWithoutActivating, !takes);
    // Without making the window anew, and also told to one that is hidden.
    overrideWindowFlags(windowFlags().setFlag(Qt::WindowDoesNotAcceptFocus, !takes));
    if (auto* handle = windowHandle())
        handle->setFlag(Qt::WindowDoesNotAcceptFocus, !takes);
}

// Keys are looked at where they enter a window, once each.
bool QuestionDialog::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
        case QEvent::KeyPress: {
            if (!watched->isWindowType())
                break;
            bool isMeant = guard_.isLive() && !static_cast<QKeyEvent*>(event)->isAutoRepeat();
            rest();
            if (watched != windowHandle())
                break;
            return !isMeant || takeKey(static_cast<QKeyEvent*>(event)->key());
        }
        case QEvent::MouseButtonPress:
        case QEvent::MouseButtonDblClick:
        case QEvent::MouseMove:
        case QEvent::MouseButtonRelease:
            for (auto* button : buttons_)
                if (button == watched)
                    return !letsThrough(*static_cast<QMouseEvent*>(event), *button);
            break;
        default:
            break;
    }
    return QDialog::eventFilter(watched, event);
}

// A press counts if the button was live, and its release if nothing has come in between.
bool QuestionDialog::letsThrough(const QMouseEvent& event, QPushButton& button) {
    if (event.type() == QEvent::MouseMove && event.buttons() == Qt::NoButton)
        return true;
    if (event.type() == QEvent::MouseButtonPress || event.type() == QEvent::MouseButtonDblClick)
        pressCounts_ = guard_.isLive();
    if (!pressCounts_)
        button.setDown(false);
    return pressCounts_;
}

bool QuestionDialog::takeKey(int key) {
    switch (key) {
        case Qt::Key_Tab:
        case Qt::Key_Backtab:
        case Qt::Key_Left:
        case Qt::Key_Right:
            return false;
        case Qt::Key_Escape:
            answer(ViewerAnswer::Refuse);
            return true;
        case Qt::Key_Return:
        case Qt::Key_Enter:
        case Qt::Key_Space:
            break;
        default:
            return true;
    }
    auto* focus = focusWidget();
    if (focus == help_ || focus == watch_) {
        // A window manager may have put the focus here, and the user may not have seen it.
        if (keysMayLetIn_)
            answer(focus == help_ ? ViewerAnswer::Control : ViewerAnswer::Watch);
    } else if (focus == everybody_) {
        answer(ViewerAnswer::Refuse);
        listener_.refuseEverybody();
    } else if (focus == refuse_ || key != Qt::Key_Space) {
        answer(ViewerAnswer::Refuse);
    }
    return true;
}

void QuestionDialog::rest() {
    guard_.rest();
    pressCounts_ = false;
    for (auto* button : buttons_)
        button->setDown(false);
    showRest();
}

void QuestionDialog::showRest() {
    bool rests = !guard_.isLive();
    setProperty("rests", rests);
    for (auto* button : buttons_)
        static_cast<AnswerButton*>(button)->setResting(rests);
    if (rests)
        resting_.start(AnswerGuard::Rest);
}

void QuestionDialog::countDown() {
    auto left = std::chrono::ceil<std::chrono::seconds>(question_.until - guard_.now()).count();
    countdown_->setText(localizedWith("Without an answer, refused in %@ s",
                                      QString::number(std::max<std::int64_t>(left, 0))));
}

void QuestionDialog::applyLook() {
    title_->setFont(scaled(font(), 1.5, true));
    address_->setFont(scaled(font(), 1.15, false));
    auto digits = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    digits.setPointSizeF(font().pointSizeF());
    digits_->setFont(scaled(digits, 1.7, true));
    for (auto* button : {help_, watch_, refuse_})
        button->setFont(scaled(font(), 1.15, true));
    setFixedWidth(
        std::max({fontMetrics().horizontalAdvance("0123456789") * WidthInDigitsOfQuestion / 10,
                  3 * help_->sizeHint().width(), 3 * watch_->sizeHint().width()}) +
        2 * 28);
}

}  // namespace zelvo::platform
