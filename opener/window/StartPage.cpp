#include "opener/window/StartPage.h"

#include <QEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <utility>
#include <variant>

#include "opener/window/Layouts.h"
#include "opener/window/OpenerTexts.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/widgets/StatusLabel.h"

namespace zelvo::opener {

namespace {

using platform::localized;

/// Room for a name whose letters are put together of several.
constexpr int LongestTypedName = 200;

QLineEdit* addField(QBoxLayout& layout, const char* name, const char* caption) {
    auto* field = new QLineEdit;
    field->setObjectName(name);
    auto* label = new QLabel(localized(caption));
    label->setBuddy(field);
    field->setAccessibleName(localized(caption));
    layout.addWidget(label);
    layout.addWidget(field);
    return field;
}

}  // namespace

StartPage::StartPage(const QString& images, Listener listener) : listener_(std::move(listener)) {
    build(images);
}

void StartPage::build(const QString& images) {
    auto* column = makeColumn(*this);
    const auto header = addHeader(*column, images, "start");
    title_ = header.title;
    sentence_ = header.sentence;

    auto* link = addPanel(*column, linkPanel_);
    linkField_ = addField(*link, "linkField", "The link that you were sent");
    linkField_->setPlaceholderText("zelvo://…");
    // Neither is ever to be corrected, learnt or suggested by an input method.
    linkField_->setInputMethodHints(Qt::ImhSensitiveData | Qt::ImhNoPredictiveText |
                                    Qt::ImhNoAutoUppercase);
    QWidget* namePanel = nullptr;
    auto* name = addPanel(*column, namePanel);
    nameField_ = addField(*name, "nameField", "Your name, as the other side is to see it");
    nameField_->setMaxLength(LongestTypedName);
    column->addStretch(1);

    open_ = new QPushButton(localized("Open"));
    open_->setObjectName("openButton");
    open_->setDefault(true);
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(open_);
    column->addLayout(row);
    connect(open_, &QPushButton::clicked, this, [this] { begin(); });
    for (auto* field : {linkField_, nameField_})
        connect(field, &QLineEdit::returnPressed, this, [this] { begin(); });
    matchFrames();
}

// Qt's own style draws a frame somewhat darker than the window, which is no line on a dark panel.
void StartPage::matchFrames() {
    auto colors = palette();
    colors.setColor(QPalette::Window, colors.color(QPalette::Disabled, QPalette::WindowText));
    linkField_->setPalette(colors);
    nameField_->setPalette(colors);
}

void StartPage::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && nameField_)
        matchFrames();
}

void StartPage::ask(const std::string& name) {
    link_.reset();
    linkField_->clear();
    nameField_->setText(QString::fromStdString(name));
    showFields();
}

void StartPage::showFields() {
    linkPanel_->setVisible(!link_);
    title_->setText(link_ ? localized("What is your name?") : localized("See another screen"));
    sentence_->setText(
        link_ ? localized("Whoever sent you the link reads it before they let you in.")
              : localized("Paste the link that you were sent, or drop it here. Before you see "
                          "anything, the user of the other computer is asked."));
    (link_ ? nameField_ : linkField_)->setFocus();
}

void StartPage::takeLink(const QString& text) {
    link_.reset();
    linkField_->setText(text);
    showFields();
    begin();
}

void StartPage::begin() {
    if (!link_) {
        const auto read = sealing::parseLink(linkField_->text().trimmed().toStdString());
        if (const auto* why = std::get_if<sealing::NoLink>(&read))
            return complain(sentenceOf(*why), linkField_);
        link_ = std::get<sealing::ShareLink>(read);
        linkField_->clear();
        if (nameField_->text().isEmpty())
            return showFields();
    }
    const auto name = helperName(nameField_->text());
    if (name.empty())
        return complain(localized("Tell your name: at least one letter of it can be shown."),
                        nameField_);
    listener_(*std::exchange(link_, std::nullopt), name);
}

void StartPage::complain(const QString& sentence, QLineEdit* field) {
    sentence_->setText(sentence);
    sentence_->announce();
    field->setFocus();
    field->selectAll();
}

}  // namespace zelvo::opener
