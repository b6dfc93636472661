#include <QAccessible>
#include <QClipboard>
#include <QDialog>
#include <QLabel>
#include <QPlainTextEdit>
#include <QTemporaryDir>
#include <set>

#include "platform/qt/core/Redaction.h"
#include "platform/qt/sharing/SharingServices.h"
#include "tests/qt/WindowFixture.h"

namespace zelvo::test {
namespace {

using ActionsTest = WindowTest;

TEST(Redaction, LeavesNoLinkAndNoAddress) {
    EXPECT_EQ(platform::withoutAddresses("Error 3: -60006"), "Error 3: -60006");
    EXPECT_EQ(platform::withoutAddresses("a zelvo://AbC b https://h.example/x?y c"), "a … b … c");
    EXPECT_EQ(platform::withoutAddresses("203.0.113.7:5900 -> 192.0.2.1_80"), "… -> …_80");
    EXPECT_EQ(platform::withoutAddresses("Anna's Computer -> desk.local."), "… -> …");
    EXPECT_EQ(platform::withoutAddresses("from ::ffff:192.0.2.7 x"), "from … x");
    EXPECT_EQ(platform::withoutAddresses("fe80::1%eth0, 2001:db8::7 at 00:16:3e:aa:bb:cc"),
              "…, … at …");
    EXPECT_EQ(platform::withoutAddresses("anna@example.org sent Zk3_9-abcdefghijklmno"),
              "… sent …");
    auto text = platform::describeSystem("1.0", {"old 203.0.113.7", "new"});
    EXPECT_NE(text.find("Zelvo 1.0\n"), std::string::npos);
    EXPECT_NE(text.find("old …\nnew\n"), std::string::npos);
}

TEST_F(ActionsTest, FeedbackIsCopiedByTheUserAlone) {
    fake.log.lines = {"to 203.0.113.7"};
    desktop.feedback.sendTrackingReport();
    desktop.feedback.setupIssuesController(true);
    EXPECT_FALSE(window.findChild<QDialog*>());
    desktop.feedback.showFeedbackDialog(0);
    auto* dialog = window.findChild<QDialog*>("feedbackDialog");
    ASSERT_TRUE(dialog && dialog->isVisible());
    dialog->findChild<QPlainTextEdit*>("feedbackText")->setPlainText("It works.");
    dialog->findChild<QPushButton*>("feedbackCopy")->click();
    auto copied = QGuiApplication::clipboard()->text().toStdString();
    EXPECT_EQ(copied.find("It works.\n\nZelvo 1.0\n"), 0u);
    EXPECT_NE(copied.find("to …\n"), std::string::npos);
    EXPECT_TRUE(fake.peer.requests.empty());
}

/// For its life, programs and their registrations are those of one folder.
struct EmptyDesktop {
    explicit EmptyDesktop(const QString& folder) {
        for (const auto* name : {"PATH", "XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME"}) {
            earlier[name] = qEnvironmentVariable(name);
            qputenv(name, folder.toUtf8());
        }
    }
    ~EmptyDesktop() {
        for (const auto& [name, value] : earlier)
            value.isNull() ? qunsetenv(name) : qputenv(name, value.toUtf8());
    }
    std::map<const char*, QString> earlier;
};

TEST_F(ActionsTest, TheMenuOffersWhatTheDesktopCanDo) {
    QTemporaryDir home;
    EmptyDesktop desktopOfNothing(home.path());
    auto titles = [&] {
        std::vector<std::string> list;
        for (const auto& service : platform::desktopSharingServices(
                 {"top", "zelvo://abc", "bottom"}, fake.workspace, &window))
            list.push_back(service.title);
        return list;
    };
    EXPECT_EQ(titles(), std::vector<std::string>{"QR Code…"});

    QFile mail(home.filePath("xdg-email"));
    ASSERT_TRUE(mail.open(QIODevice::WriteOnly));
    auto sent = home.filePath("sent");
    mail.write("#!/bin/sh\nfor a; do echo \"<$a>\"; done > '" + sent.toUtf8() + ".new' && " +
               "/bin/mv '" + sent.toUtf8() + ".new' '" + sent.toUtf8() + "'\n");
    mail.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    mail.close();
    ASSERT_TRUE(QDir(home.path()).mkdir("applications"));
    QFile cache(home.filePath("applications/mimeinfo.cache"));
    ASSERT_TRUE(cache.open(QIODevice::WriteOnly));
    cache.write("[MIME Cache]\nx-scheme-handler/sms=phone.desktop;\n");
    cache.close();
    EXPECT_EQ(titles(), (std::vector<std::string>{"E-mail…", "Text Message…", "QR Code…"}));

    auto services =
        platform::desktopSharingServices({"top", "zelvo://abc", "bottom"}, fake.workspace, &window);
    services[0].handler();
    ASSERT_TRUE(waitFor([&] { return QFile::exists(sent); }));
    QFile mailed(sent);
    ASSERT_TRUE(mailed.open(QIODevice::ReadOnly));
    EXPECT_NE(mailed.readAll().toStdString().find("<top\n\nzelvo://abc\n\nbottom>"),
              std::string::npos);
    services[1].handler();
    EXPECT_EQ(fake.workspace.opened.back(), "sms:?body=top%0A%0Azelvo%3A%2F%2Fabc%0A%0Abottom");
    services[2].handler();
    auto* dialog = window.findChild<QDialog*>("qrCodeDialog");
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(dialog->isVisible());
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
    EXPECT_FALSE(shown("connectionSpinner"));
    connectViewer(false);
    EXPECT_TRUE(shown("connectionSpinner"));
    EXPECT_EQ(status->text(QAccessible::Name), "Your link is ready");
}

TEST_F(ActionsTest, TheKeyboardReachesEveryControl) {
    auto reached = [&] {
        std::set<std::string> names;
        for (int i = 0; i < 5; ++i) {
            QKeyEvent tab(QEvent::KeyPress, Qt::Key_Tab, Qt::NoModifier);
            QApplication::sendEvent(window.focusWidget(), &tab);
            names.insert(window.focusWidget()->objectName().toStdString());
        }
        return names;
    };
    launch();
    EXPECT_EQ(reached(), (std::set<std::string>{"linkText", "portMappingButton"}));
    fake.screenSharing(true);
    fake.loop.settle();
    connectViewer(true);
    EXPECT_EQ(reached(), (std::set<std::string>{"shareButton", "linkText", "disconnectButton"}));
}

TEST_F(ActionsTest, NothingIsCutOffInALargeFont) {
    QFont large = QApplication::font();
    large.setPointSize(22);
    window.setFont(large);
    launch();
    QCoreApplication::processEvents();
    for (auto* label : window.findChildren<QLabel*>()) {
        if (!label->isVisible())
            continue;
        EXPECT_GE(label->height(), label->heightForWidth(label->width()))
            << label->objectName().toStdString();
        EXPECT_TRUE(
            window.rect().contains(QRect(label->mapTo(&window, QPoint(0, 0)), label->size())))
            << label->objectName().toStdString();
    }
}

}  // namespace
}  // namespace zelvo::test
