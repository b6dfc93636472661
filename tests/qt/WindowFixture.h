#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <csignal>

#include "app/AppDelegate.h"
#include "app/KVView.h"
#include "platform/Explanations.h"
#include "platform/qt/MainWindow.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/QtMainLoop.h"
#include "tests/qt/Wait.h"
#include "tests/support/FakePlatform.h"

namespace zelvo::test {

struct ResourceBundle : FakeBundle {
    std::string resourcePath() const override { return ZELVO_RESOURCES; }
};

struct GivenExplanations final : platform::Explanations {
    platform::Observable<std::string>& screenSharing() override { return sharing; }
    platform::Observable<std::string>& router() override { return routing; }
    platform::Observable<std::string> sharing;
    platform::Observable<std::string> routing;
};

/// The real window and controller: the system below is the fake one, the desktop the real one.
struct WindowWorld {
    explicit WindowWorld(platform::Bundle& texts, const std::string& link = "AbC-d_1")
        : bundle(texts) {
        fake.peer.answer("create.php", fake.propertyLists.encode(PropertyList::Dictionary{
                                           {"StatusCode", 0}, {"link", link}}));
        fake.peer.answer("get.php", fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.peer.answer("update.php", fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.router.grantAll("203.0.113.7");
        controller.setWindow(&window);
        controller.setShareButton(&window.shareButton());
        controller.setContainerView(content);
        desktop.attach(window, controller);
        window.show();
        window.activateWindow();
    }

    void launch() { controller.applicationDidFinishLaunching(); }
    void launchToLink() {
        fake.screenSharing(true);
        launch();
        fake.loop.settle();
    }
    void connectViewer(bool connected) {
        fake.sockets.connect(connected);
        fake.processes.records.clear();
        if (connected)
            fake.processes.records.push_back({"screensharingd", 7});
        fake.loop.advance(std::chrono::seconds(3));
    }

    /// The sheet that is up, once there is one.
    QMessageBox* sheet() {
        QMessageBox* found = nullptr;
        waitFor([&] {
            for (auto* box : window.findChildren<QMessageBox*>())
                if (box->isVisible())
                    found = box;
            return found != nullptr;
        });
        return found;
    }
    static void press(QMessageBox* box, int button) {
        box->findChild<QPushButton*>(QString("alertButton%1").arg(button))->click();
    }

    FakePlatform fake;
    platform::Bundle& bundle;
    GivenExplanations explanations;
    platform::QtMainLoop loop;
    platform::QtDesktop desktop{loop, bundle, [this] { return fake.log.lines; }};
    AppDelegate controller{{fake.loop,
                            fake.loop,
                            fake.log,
                            fake.dynamicStore,
                            fake.hardware,
                            fake.services,
                            fake.sockets,
                            fake.processes,
                            fake.processInfo,
                            fake.inputSources,
                            fake.random,
                            fake.digest,
                            fake.addresses,
                            fake.propertyLists,
                            fake.userDefaults,
                            bundle,
                            fake.peer,
                            "https://share.example",
                            fake.router,
                            desktop.application,
                            desktop.alerts,
                            desktop.windowSystem,
                            desktop.sharingServicePicker,
                            desktop.pasteboard,
                            fake.workspace,
                            fake.authorization,
                            fake.feedback}};
    KVView* content = new KVView;
    platform::MainWindow window{
        content, {controller, controller, explanations, desktop.application, bundle, loop}};
};

struct ResourceBundled {
    ResourceBundle ownBundle;
};

class WindowTest : public ::testing::Test, protected ResourceBundled, protected WindowWorld {
  protected:
    WindowTest() : WindowWorld(ownBundle) {}

    template <typename Control = QWidget>
    Control* find(const char* name) {
        auto* control = window.findChild<Control*>(name);
        EXPECT_TRUE(control) << name;
        return control;
    }
    std::string property(const char* control, const char* name) {
        return find(control)->property(name).toString().toStdString();
    }
    bool shown(const char* control) { return find(control)->isVisible(); }
    bool spins(const char* control) { return find(control)->property("spinning").toBool(); }

    bool noSheet() {
        bool turned = false;
        loop.async([&] { turned = true; });
        waitFor([&] { return turned; });
        for (auto* box : window.findChildren<QMessageBox*>())
            if (box->isVisible())
                return false;
        return true;
    }
};

}  // namespace zelvo::test
