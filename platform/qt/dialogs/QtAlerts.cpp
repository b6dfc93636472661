#include "platform/qt/dialogs/QtAlerts.h"

#include <QAction>
#include <QApplication>
#include <QFrame>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <algorithm>

#include "platform/Bundle.h"
#include "platform/MainQueue.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/content/Sheets.h"
#include "platform/qt/widgets/Images.h"

namespace zelvo::platform {

namespace {

constexpr int AlertIconSize = 48;

}  // namespace

QtAlerts::QtAlerts(MainQueue& mainQueue, const Bundle& bundle, const Explanations& explanations)
    : mainQueue_(mainQueue),
      explanations_(explanations),
      imageFolder_(QString::fromStdString(bundle.resourcePath())) {}

QtAlerts::~QtAlerts() {
    setWindow(nullptr);
}

void QtAlerts::setWindow(QWidget* window) {
    if (!window)
        delete box_;
    window_ = window;
}

void QtAlerts::beginSheet(Alert alert, std::function<void(int response)> done) {
    if (hasEnded_)
        return;
    sheets_.push_back({std::move(alert), std::move(done)});
    if (sheets_.size() == 1)
        mainQueue_.async([this, weak = std::weak_ptr(alive_)] {
            if (weak.lock())
                showNext();
        });
}

void QtAlerts::showNext() {
    if (box_ || sheets_.empty() || !window_)
        return;
    box_ = makeBox(sheets_.front().alert);
    QObject::connect(box_, &QMessageBox::finished, box_, [this] {
        // Closed by its frame, the box has no clicked button yet.
        auto* button = box_->clickedButton() ? box_->clickedButton() : box_->escapeButton();
        finish(button ? button->property("response").toInt() : AlertFirstButtonReturn);
    });
    if (window_->isMinimized())
        window_->showNormal();
    setContentEnabled(false);
    box_->show();
    QApplication::alert(window_);
}

QMessageBox* QtAlerts::makeBox(const Alert& alert) {
    auto* box = new QMessageBox(window_);
    // Not modal: of a window below a modal one Qt drops the request to close it.
    box->setWindowModality(Qt::NonModal);
    if (auto* quit = window_->findChild<QAction*>("actionQuit"))
        box->addAction(quit);
    box->setWindowTitle(window_->windowTitle());
    box->setTextFormat(Qt::PlainText);
    box->setText(QString::fromStdString(alert.messageText));
    auto details = QString::fromStdString(alert.informativeText);
    if (auto reason = reasonFor(alert, explanations_); !reason.empty())
        details = QString::fromStdString(reason) + "\n\n" + details;
    box->setInformativeText(details);
    box->setAccessibleName(box->text());
    box->setAccessibleDescription(box->informativeText());
    box->setIconPixmap(renderImage(imageFolder_, QString::fromStdString(alert.icon),
                                   QSize(AlertIconSize, AlertIconSize),
                                   window_->devicePixelRatio()));
    if (auto* icon = box->findChild<QLabel*>("qt_msgboxex_icon_label"))
        icon->setAccessibleName(localized("Caution"));
    if (auto* message = box->findChild<QLabel*>("qt_msgbox_label")) {
        QFont bold = message->font();
        bold.setBold(true);
        message->setFont(bold);
    }

    // One role for all, since desktops sort buttons by their roles.
    std::vector<QPushButton*> buttons;
    for (const auto& title : alert.buttonTitles) {
        auto* button = box->addButton(QString::fromStdString(title), QMessageBox::ActionRole);
        button->setProperty("response", AlertFirstButtonReturn + static_cast<int>(buttons.size()));
        button->setObjectName(QString("alertButton%1").arg(buttons.size()));
        buttons.push_back(button);
    }
    if (!buttons.empty())
        box->setDefaultButton(buttons.front());
    // Escape leaves a session as it is. Elsewhere it would quit, so it does nothing.
    const bool asksAboutSession =
        alert.kind == AlertKind::SessionUnderWay || alert.kind == AlertKind::EndsSession;
    if (asksAboutSession && buttons.size() > 1)
        box->setEscapeButton(buttons[1]);

    if (alert.showsHelp) {
        auto* help = box->addButton(QMessageBox::tr("Help"), QMessageBox::HelpRole);
        help->setObjectName("alertHelpButton");
        // Without this the box would close.
        help->disconnect();
        QObject::connect(help, &QPushButton::clicked, box, [showHelp = alert.showHelp] {
            if (showHelp)
                showHelp();
        });
    }
    return box;
}

void QtAlerts::finish(int response) {
    auto sheet = std::move(sheets_.front());
    sheets_.pop_front();
    takeDown();
    if (!sheets_.empty())
        mainQueue_.async([this, weak = std::weak_ptr(alive_)] {
            if (weak.lock())
                showNext();
        });
    if (sheet.done)
        sheet.done(response);
}

// Later, since it may be the box itself that is being pressed.
void QtAlerts::takeDown() {
    if (!box_)
        return;
    box_->disconnect();
    box_->hide();
    box_->deleteLater();
    box_ = nullptr;
    setContentEnabled(true);
}

void QtAlerts::setContentEnabled(bool enabled) {
    auto* main = qobject_cast<QMainWindow*>(window_);
    // A quit that goes on has put all of it to rest.
    if (!main || hasEnded_)
        return;
    for (auto* part : main->centralWidget()->findChildren<QFrame*>(Qt::FindDirectChildrenOnly))
        if (!part->property("worksUnderSheets").toBool())
            part->setEnabled(enabled);
}

void QtAlerts::end() {
    hasEnded_ = true;
    dismiss();
}

void QtAlerts::dismiss() {
    takeDown();
    sheets_.clear();
}

bool QtAlerts::answer(AlertKind kind, int response) {
    auto found = std::find_if(sheets_.begin(), sheets_.end(),
                              [&](const Sheet& sheet) { return sheet.alert.kind == kind; });
    if (found == sheets_.end())
        return false;
    if (found == sheets_.begin()) {
        finish(response);
        return true;
    }
    auto done = std::move(found->done);
    sheets_.erase(found);
    if (done)
        done(response);
    return true;
}

}  // namespace zelvo::platform
