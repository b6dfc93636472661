#include "platform/qt/dialogs/QtFeedback.h"

#include <QClipboard>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "platform/qt/content/Localized.h"
#include "platform/qt/dialogs/Dialogs.h"
#include "platform/qt/programs/MailProgram.h"
#include "platform/qt/widgets/NoticeLine.h"

namespace zelvo::platform {

namespace {

QPlainTextEdit* addField(QVBoxLayout& layout, const char* caption, const char* name, int lines) {
    auto* label = new QLabel(localized(caption));
    label->setWordWrap(true);
    auto* field = new QPlainTextEdit;
    field->setObjectName(name);
    field->setAccessibleName(localized(caption));
    field->setTabChangesFocus(true);
    field->setMinimumHeight(field->fontMetrics().lineSpacing() * lines);
    label->setBuddy(field);
    layout.addWidget(label);
    layout.addWidget(field, 1);
    return field;
}

}  // namespace

void QtFeedback::showFeedbackDialog(int) {
    if (raiseDialog("feedbackDialog"))
        return;
    auto* dialog = makeDialog(window_, "feedbackDialog", "Feedback");
    auto* layout = qobject_cast<QVBoxLayout*>(dialog->layout());
    layout->setSpacing(10);

    auto* words = addField(*layout, "What would you like to tell us?", "feedbackText", 6);
    auto* facts =
        addField(*layout, "This is added. It holds no link and no address, and you can change it.",
                 "feedbackFacts", 8);
    facts->setPlainText(QString::fromStdString(describe_()));
    facts->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* promise = new QLabel(localized("Nothing is sent unless you send it."));
    promise->setWordWrap(true);
    auto* notices = new NoticeLine;
    notices->addWidget(promise);
    layout->addWidget(notices);

    auto text = [words, facts] {
        return words->toPlainText().trimmed() + "\n\n" + facts->toPlainText();
    };
    auto* buttons = makeButtons(dialog);
    auto* copy = buttons->addButton(localized("Copy Text"), QDialogButtonBox::ActionRole);
    copy->setObjectName("feedbackCopy");
    QObject::connect(copy, &QPushButton::clicked, dialog, [text, notices] {
        QGuiApplication::clipboard()->setText(text());
        notices->say(Copied);
    });
    if (hasMailProgram()) {
        auto* mail = buttons->addButton(localized("E-mail…"), QDialogButtonBox::ActionRole);
        mail->setObjectName("feedbackMail");
        QObject::connect(mail, &QPushButton::clicked, dialog, [text, notices] {
            composeMail(localized("Feedback on Zelvo"), text(), notices,
                        [notices] { notices->say(TextNotOpened); });
        });
    }
    layout->addWidget(buttons);
    dialog->resize(560, 520);
    words->setFocus();
    showDialog(*dialog);
}

}  // namespace zelvo::platform
