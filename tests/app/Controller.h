#pragma once

#include <gtest/gtest.h>

#include "app/AppDelegate.h"
#include "tests/support/FakePlatform.h"

namespace zelvo::test {

/// A controller with its outlets on the fake platform, whose service and router say yes.
class ControllerTest : public ::testing::Test {
  protected:
    ControllerTest() {
        serviceGives("abc");
        for (const auto* endpoint : {"get.php", "update.php"})
            fake.peer.answer(endpoint, fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.router.grantAll("203.0.113.7");
        controller.setWindow(&window);
        controller.setShareButton(&button);
        controller.setContainerView(&view);
        fake.application.onTerminate = [this] { controller.applicationShouldTerminate(); };
    }

    void serviceGives(const std::string& link) {
        fake.peer.answer("create.php", fake.propertyLists.encode(PropertyList::Dictionary{
                                           {"StatusCode", 0}, {"link", link}}));
    }
    void launch() { controller.applicationDidFinishLaunching(); }
    /// Launched with Screen Sharing on, the link ready.
    void launchToLink() {
        fake.screenSharing(true);
        launch();
        fake.loop.settle();
    }
    void tick() { fake.loop.advance(std::chrono::seconds(3)); }
    bool mappingRowIs(const std::string& text, const std::string& icon, bool spinner, bool shown) {
        return controller.portMappingStatusText().value() == text &&
               controller.portMappingStatusIcon().value() == icon &&
               controller.animatePortMappingSpinner().value() == spinner &&
               controller.showPortMappingButton().value() == shown;
    }

    FakePlatform fake;
    FakeWindow window;
    FakeButton button;
    FakeView view;
    AppDelegate controller{fake.platform};
};

}  // namespace zelvo::test
