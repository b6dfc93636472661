#include <QAccessible>
#include <QClipboard>
#include <QDir>
#include <QLabel>
#include <QPlainTextEdit>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <set>

#include "platform/qt/content/QrCode.h"
#include "platform/qt/content/Redaction.h"
#include "platform/qt/dialogs/Dialogs.h"
#include "platform/qt/sharing/SharingServices.h"
#include "platform/qt/widgets/NoticeLine.h"
#include "tests/qt/WindowFixture.h"

namespace zelvo::test {
namespace {

using ActionsTest = WindowTest;
using platform::findDialog;

TEST(Redaction, LeavesNoLinkAndNoAddress) {
    const std::pair<const char*, const char*> cases[] = {
        {"Error 3: -60006", "Error 3: -60006"},
        {"a zelvo://AbC b https://h.example/x?y c", "a … b … c"},
        {"203.0.113.7:5900 -> 192.0.2.1_80", "… -> …_80"},
        {"Anna's Computer -> desk.local.", "… -> …"},
        {"from ::ffff:192.0.2.7 x", "from … x"},
        {"fe80::1%eth0, 2001:db8::7 at 00:16:3e:aa:bb:cc", "…, … at …"},
        {"anna@example.org sent Zk3_9-abcdefghijklmno", "… sent …"}};
    for (const auto& [text, clean] : cases)
        EXPECT_EQ(platform::withoutAddresses(text), clean);
    auto text = platform::describeSystem("1.0", {"old 203.0.113.7", "new"});
    EXPECT_EQ(text.find("Zelvo 1.0\n"), 0u);
    EXPECT_NE(text.find("old …\nnew\n"), std::string::npos);
}

/// For its life, programs and their registrations are those of one folder, at first none.
struct EmptyDesktop {
    EmptyDesktop() {
        for (const auto* name : {"PATH", "XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME"}) {
            earlier[name] = qEnvironmentVariable(name);
            qputenv(name, home.path().toUtf8());
        }
    }
    ~EmptyDesktop() {
        for (const auto& [name, value] : earlier)
            value.isNull() ? qunsetenv(name) : qputenv(name, value.toUtf8());
    }
    void write(const QString& name, const QByteArray& content) {
        QFile file(home.filePath(name));
        EXPECT_TRUE(QDir(home.path()).mkpath(QFileInfo(file).path()) &&
                    file.open(QIODevice::WriteOnly) && file.write(content) == content.size() &&
                    file.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    }
    /// The program writes its arguments into the file "NAME.took", then ends with the status.
    void install(const QByteArray& name, int status) {
        remove(name + ".took");
        remove(name);
        auto took = home.filePath(name + ".took").toUtf8();
        write(name, "#!/bin/sh\nfor a; do echo \"<$a>\"; done > '" + took + ".new'\n/bin/mv '" +
                        took + ".new' '" + took + "'\nexit " + QByteArray::number(status) + "\n");
    }
    void remove(const QString& name) { QFile::remove(home.filePath(name)); }
    /// Once the program has been started.
    std::string argumentsOf(const QString& name) {
        QFile took(home.filePath(name + ".took"));
        EXPECT_TRUE(waitFor([&] { return took.open(QIODevice::ReadOnly); })) << name.toStdString();
        return took.readAll().toStdString();
    }

    QTemporaryDir home;
    std::map<const char*, QString> earlier;
};

TEST_F(ActionsTest, FeedbackIsCopiedOrMailedByTheUserAlone) {
    EmptyDesktop tools;
    tools.install("xdg-email", 3);
    fake.log.lines = {"to 203.0.113.7"};
    desktop.feedback.sendTrackingReport();
    desktop.feedback.setupIssuesController(true);
    EXPECT_FALSE(window.findChild<QDialog*>());
    desktop.feedback.showFeedbackDialog(0);
    auto* dialog = findDialog("feedbackDialog");
    ASSERT_TRUE(dialog);
    dialog->findChild<QPlainTextEdit*>("feedbackText")->setPlainText("It works.");
    dialog->findChild<QPushButton*>("feedbackCopy")->click();
    auto copied = QGuiApplication::clipboard()->text().toStdString();
    EXPECT_EQ(copied.find("It works.\n\nZelvo 1.0\n"), 0u);
    EXPECT_NE(copied.find("to …\n"), std::string::npos);
    auto* notice = dialog->findChild<QLabel*>("notice");
    EXPECT_TRUE(notice->isVisible());
    EXPECT_EQ(notice->text(), "Copied");
    EXPECT_TRUE(fake.peer.requests.empty());
    dialog->findChild<QPushButton*>("feedbackMail")->click();
    EXPECT_NE(tools.argumentsOf("xdg-email").find("<" + copied + ">"), std::string::npos);
    EXPECT_TRUE(waitFor([&] { return notice->text() == platform::TextNotOpened.key; }));
}

TEST_F(ActionsTest, TheMenuOffersWhatTheDesktopCanDo) {
    EmptyDesktop tools;
    std::vector<std::string> notices;
    auto offered = [&](const std::vector<std::string>& titles) {
        auto services = platform::desktopSharingServices(
            {"top", "zelvo://abc#key", "bottom"}, wayIn, fake.bundle, fake.workspace, &window,
            [&](const auto& notice) { notices.push_back(notice.key); });
        std::vector<std::string> found;
        for (const auto& service : services)
            found.push_back(service.title);
        EXPECT_EQ(found, titles);
        return services;
    };
    const std::string text =
        "top\n\nzelvo://abc#key\n\nbottom\n\nIf nothing opens the link, this "
        "page says what to do: https://service.example/abc#key";
    offered({"QR Code…"});
    tools.write("applications/mimeinfo.cache",
                "[MIME Cache]\nx-scheme-handler/sms=phone.desktop;\n");
    for (int status : {0, 4}) {
        tools.install("xdg-email", status);
        offered({"E-mail…", "Text Message…", "QR Code…"})[0].handler();
        EXPECT_NE(tools.argumentsOf("xdg-email").find("<" + text), std::string::npos);
    }
    const std::string refused = platform::LinkNotOpened.key;
    EXPECT_TRUE(waitFor([&] { return !notices.empty(); }));
    auto services = offered({"E-mail…", "Text Message…", "QR Code…"});
    services[1].handler();
    EXPECT_EQ(notices, (std::vector<std::string>{refused, platform::PasteText.key}));
    EXPECT_EQ(fake.workspace.opened.back(), "sms:");
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(), text);
    services[2].handler();
    auto* view = findDialog("qrCodeDialog")->findChild<QWidget*>("qrCode");
    const auto code = platform::makeQrCode("https://service.example/abc#key");
    view->resize(10 * (code->size + 8), 10 * (code->size + 8));
    const auto shown = view->grab().toImage();
    for (int i = 0; i < code->size * code->size; ++i) {
        const int x = i % code->size, y = i / code->size;
        ASSERT_EQ(qGray(shown.pixel(10 * x + 45, 10 * y + 45)) < 128, code->isDark(x, y));
    }

    wayIn.wayIs({"relay.example:443", true});
    services = offered({"E-mail…", "Text Message…", "QR Code…", "Copy Link for Browsers"});
    services[3].handler();
    EXPECT_EQ(QApplication::clipboard()->text(), "https://service.example/abc#key");
}

TEST_F(ActionsTest, WhatNoProgramOpensIsSaidAndTheHelpIsShownHere) {
    EmptyDesktop tools;
    const auto page = "file://" + bundle.resourcePath() + "/help/de/router.html";
    tools.install("xdg-open", 3);
    tools.install("gio", 0);
    desktop.workspace.openUrl(page);
    EXPECT_EQ(tools.argumentsOf("gio"), "<open>\n<" + page + ">\n");
    tools.remove("gio");
    desktop.workspace.openUrl("sms:x");
    ASSERT_TRUE(waitFor([&] { return window.findChild<QLabel*>("notice")->isVisible(); }));
    expect({{"notice", "text", platform::LinkNotOpened.key}});
    EXPECT_FALSE(findDialog("helpDialog"));

    desktop.workspace.openUrl(page);
    ASSERT_TRUE(waitFor([&] { return findDialog("helpDialog"); }));
    auto* dialog = findDialog("helpDialog");
    expect({{"notice", "text", platform::HelpInWindow.key}});
    EXPECT_EQ(dialog->windowTitle(), "Hilfe zum Router");
    auto* browser = dialog->findChild<QTextBrowser*>();
    EXPECT_TRUE(browser->toPlainText().contains("192.168.178.1"));
    browser->setSource(QUrl("index.html"));
    EXPECT_EQ(dialog->windowTitle(), "Zelvo-Hilfe");
    tools.remove("xdg-open");
    desktop.workspace.openUrl(page);
    EXPECT_TRUE(waitFor([&] { return dialog->windowTitle() == "Hilfe zum Router"; }));
    desktop.application.terminate();
    EXPECT_FALSE(findDialog("helpDialog"));
}

TEST_F(ActionsTest, EverythingHasANameForAssistiveTechnology) {
    launchToLink();
    connectViewer(true);
    for (auto* control : window.findChildren<QWidget*>()) {
        auto* interface = QAccessible::queryAccessibleInterface(control);
        bool matters = control->isVisible() && interface && !control->objectName().isEmpty() &&
                       (control->focusPolicy() != Qt::NoFocus ||
                        control->property("image").isValid() || qobject_cast<QLabel*>(control));
        if (matters) {
            EXPECT_FALSE(interface->text(QAccessible::Name).isEmpty())
                << control->objectName().toStdString();
        }
    }

    auto* status = QAccessible::queryAccessibleInterface(find("statusTitle"));
    EXPECT_EQ(status->role(), QAccessible::AlertMessage);
    EXPECT_EQ(status->text(QAccessible::Name), "Somebody is connected");
    EXPECT_EQ(QAccessible::queryAccessibleInterface(find("appIcon"))->role(), QAccessible::Graphic);
    connectViewer(false);
    EXPECT_EQ(status->text(QAccessible::Name), "Your link is ready");
}

TEST_F(ActionsTest, TheKeyboardReachesEveryControl) {
    auto reached = [&] {
        std::set<std::string> names;
        for (int i = 0; i < 6; ++i) {
            QKeyEvent tab(QEvent::KeyPress, Qt::Key_Tab, Qt::NoModifier);
            QApplication::sendEvent(window.focusWidget(), &tab);
            names.insert(window.focusWidget()->objectName().toStdString());
        }
        return names;
    };
    launch();
    EXPECT_EQ(reached(), (std::set<std::string>{"linkText", "onlyLinkHolders", "onlyABrowser",
                                                "portMappingButton"}));
    fake.screenSharing(true);
    fake.loop.settle();
    connectViewer(true);
    EXPECT_EQ(reached(),
              (std::set<std::string>{"shareButton", "newLinkButton", "linkText", "onlyLinkHolders",
                                     "onlyABrowser", "disconnectButton"}));
}

TEST(Languages, EachFitsAnOrdinaryScreenInLargeLetters) {
    for (const char* language : {"en", "de", "es", "fr", "zh-Hans"}) {
        BuiltBundle built(language);
        WindowWorld world(built.texts);
        auto& window = world.window;
        QFont large = QApplication::font();
        large.setPointSizeF(large.pointSizeF() * 1.5);
        // Here a common character is twice as wide as elsewhere.
        if (built.texts.localizedString("Quitting") == "正在退出")
            large.setFamily("Noto Sans CJK SC");
        window.setFont(large);
        world.launch();
        auto* line = window.findChild<platform::NoticeLine*>();
        QCoreApplication::processEvents();
        auto place = line->geometry();
        line->say(platform::HelpInWindow);
        QCoreApplication::processEvents();
        EXPECT_LE(window.width(), 1024) << language;
        for (auto* label : window.findChildren<QLabel*>()) {
            if (!label->isVisible())
                continue;
            EXPECT_GE(label->height(), label->heightForWidth(label->width()))
                << language << ' ' << label->objectName().toStdString();
            EXPECT_TRUE(
                window.rect().contains(QRect(label->mapTo(&window, QPoint(0, 0)), label->size())))
                << language << ' ' << label->objectName().toStdString();
        }
        line->clear();
        QCoreApplication::processEvents();
        EXPECT_EQ(line->geometry(), place) << language;
    }
}

}  // namespace
}  // namespace zelvo::test
