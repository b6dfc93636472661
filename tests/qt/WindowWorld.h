#pragma once

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

#include "app/KVView.h"
#include "platform/linux/bundle/InstalledBundle.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/window/MainWindow.h"
#include "tests/qt/FrontEndWorld.h"
#include "tests/qt/Wait.h"

namespace zelvo::test {

/// The resources as they are built, in a language.
struct BuiltBundle {
    explicit BuiltBundle(std::string language) : texts(options(std::move(language)), reader) {}
    static platform::InstalledBundle::Options options(std::string language) {
        return {.executableFolder = ZELVO_BUILD_FOLDER,
                .languages = {std::move(language)},
                .dataHome = ""};
    }
    platform::PlistReader reader{"/"};
    platform::InstalledBundle texts;
};

/// The window on the desktop.
struct WindowWorld : FrontEndWorld<platform::QtDesktop> {
    explicit WindowWorld(platform::Bundle& texts, const std::string& link = "AbC-d_1")
        : FrontEndWorld(&texts, link, [](WindowWorld::FrontEndWorld& world) {
              return platform::QtDesktop(world.loop, world.bundle, world.explanations,
                                         world.viewers, world.wayIn, world.preferences,
                                         [&world] { return world.fake.log.lines; });
          }) {
        controller.setWindow(&window);
        controller.setShareButton(&window.shareButton());
        controller.setContainerView(content);
        desktop.attach(window, controller, controller);
        window.show();
        window.activateWindow();
    }

    /// The sheet that is up now.
    QMessageBox* presentSheet() {
        for (auto* box : window.findChildren<QMessageBox*>())
            if (box->isVisible())
                return box;
        return nullptr;
    }
    /// The sheet that is up, once there is one.
    QMessageBox* sheet() {
        waitFor([&] { return presentSheet(); });
        return presentSheet();
    }
    static void press(QMessageBox* box, int button) {
        box->findChild<QPushButton*>(QString("alertButton%1").arg(button))->click();
    }

    platform::QtDesktop& desktop = frontEnd;
    KVView* content = new KVView;
    platform::MainWindow window{content,
                                {controller, controller, explanations, desktop.application, bundle,
                                 loop, viewers, wayIn, preferences}};
};

}  // namespace zelvo::test
