#include "platform/qt/window/MainMenu.h"

#include <QCoreApplication>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <functional>
#include <memory>
#include <optional>

#include "platform/Application.h"
#include "platform/MainWindowModel.h"
#include "platform/qt/content/Localized.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/qt/dialogs/AboutDialog.h"
#include "platform/qt/widgets/ShareButton.h"

namespace zelvo::platform {

namespace {

struct Entry {
    /// None for a separator.
    const char* name;
    const char* caption;
    QList<QKeySequence> shortcuts;
    std::function<void()> action;
    bool isSwitch = false;
};

const Entry Separator{nullptr, nullptr, {}, {}};

QMenu* addMenu(QMainWindow& window, QtMainLoop& loop, const char* title,
               const std::vector<Entry>& entries) {
    auto* menu = window.menuBar()->addMenu(localized(title));
    auto tracking = std::make_shared<std::optional<QtMainLoop::Tracking>>();
    QObject::connect(menu, &QMenu::aboutToShow, menu,
                     [tracking, &loop] { tracking->emplace(loop); });
    QObject::connect(menu, &QMenu::aboutToHide, menu, [tracking] { tracking->reset(); });
    for (const auto& entry : entries) {
        if (!entry.name) {
            menu->addSeparator();
            continue;
        }
        auto* action = menu->addAction(localized(entry.caption));
        action->setObjectName(entry.name);
        action->setShortcuts(entry.shortcuts);
        action->setCheckable(entry.isSwitch);
        if (entry.action)
            QObject::connect(action, &QAction::triggered, action, entry.action);
    }
    return menu;
}

/// The bar makes the picture of a button that it shows where its menus do not fit, and the first
/// picture loads the plug-ins of every format; it needs none of them.
void makeMenuBar(QMainWindow& window) {
    const auto plugIns = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    window.menuBar();
    QCoreApplication::setLibraryPaths(plugIns);
}

}  // namespace

void makeMainMenu(QMainWindow& window, MainWindowModel& model, Application& application,
                  QtMainLoop& loop, std::function<void()> copyWebLink,
                  std::function<void()> disconnect) {
    makeMenuBar(window);
    auto* share = window.findChild<QPushButton*>("shareButton");
    addMenu(window, loop, "&Link",
            {
                {"actionShare",
                 "&Share Link…",
                 {QKeySequence(Qt::CTRL | Qt::Key_S)},
                 [&model, share] { model.shareLink(dynamic_cast<Button*>(share)); }},
                {"actionCopyLink",
                 "&Copy Link",
                 {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_C)},
                 [&model] { model.copyLink(); }},
                {"actionCopyWebLink", "Copy Link for &Browsers", {}, std::move(copyWebLink)},
                {"actionNewLink", "&New Link", {}, [&model] { model.makeNewLink(); }},
                {"actionDisconnect",
                 "&Disconnect Viewer",
                 {QKeySequence(Qt::CTRL | Qt::Key_D)},
                 std::move(disconnect)},
                Separator,
                {"actionQuit",
                 "&Quit",
                 {QKeySequence(Qt::CTRL | Qt::Key_Q), QKeySequence(Qt::CTRL | Qt::Key_W)},
                 [&application] { application.terminate(); }},
            });
    auto* settings =
        addMenu(window, loop, "&Settings",
                {
                    {"actionOnlyLinkHolders", "Ask Only about People with the &Link", {}, {}, true},
                    Separator,
                    {"actionOnlyABrowser", "My Helper Has Only a &Browser", {}, {}, true},
                    {"actionNeverARelay", "Never &through a Relay", {}, {}, true},
                    Separator,
                    {"actionNewLinks", "A &New Link at Every Start", {}, {}, true},
                    {"actionTrayIcon", "&Icon in the Panel", {}, {}, true},
                });
    settings->setObjectName("settingsMenu");
    addMenu(window, loop, "&Help",
            {
                {"actionHelp",
                 "Zelvo &Help",
                 {QKeySequence(Qt::Key_F1)},
                 [&model] { model.showHelp(); }},
                {"actionRouterHelp",
                 "&Router Help",
                 {QKeySequence(Qt::SHIFT | Qt::Key_F1)},
                 [&model] { model.showRouterHelp(); }},
                {"actionFeedback", "Send &Feedback…", {}, [&model] { model.showFeedbackDialog(); }},
                Separator,
                {"actionAbout",
                 "&About Zelvo",
                 {},
                 [&window, &model] { showAboutDialog(window, model.versionInfo().value()); }},
            });
}

}  // namespace zelvo::platform
