#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <csignal>

#include "app/KVView.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/window/MainWindow.h"
#include "tests/qt/FrontEndWorld.h"
#include "tests/qt/Wait.h"

namespace zelvo::test {

struct ResourceBundle : FakeBundle {
    std::string resourcePath() const override { return ZELVO_RESOURCES; }
};

/// The window on the desktop.
struct WindowWorld : FrontEndWorld<platform::QtDesktop> {
    explicit WindowWorld(platform::Bundle& texts, const std::string& link = "AbC-d_1")
        : FrontEndWorld(&texts, link, [](WindowWorld::FrontEndWorld& world) {
              return platform::QtDesktop(world.loop, world.bundle, world.explanations,
                                         [&world] { return world.fake.log.lines; });
          }) {
        controller.setWindow(&window);
        controller.setShareButton(&window.shareButton());
        controller.setContainerView(content);
        desktop.attach(window, controller, controller);
        window.show();
        window.activateWindow();
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

    platform::QtDesktop& desktop = frontEnd;
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
