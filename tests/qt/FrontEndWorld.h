#pragma once

#include <chrono>
#include <string>
#include <type_traits>

#include "app/AppDelegate.h"
#include "platform/Explanations.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/terminal/Terminal.h"
#include "tests/support/FakePlatform.h"

namespace zelvo::test {

struct GivenExplanations final : platform::Explanations {
    const platform::Observable<std::string>& screenSharing() const override { return sharing; }
    const platform::Observable<std::string>& router() const override { return routing; }
    platform::Observable<std::string> sharing;
    platform::Observable<std::string> routing;
};

/// The real controller in a real front end: the system below is the fake one, whose service and
/// router say yes.
template <typename FrontEnd>
struct FrontEndWorld {
    /// `make` gives the front end for this world. Null texts are the fake ones: their keys.
    template <typename Make>
    FrontEndWorld(platform::Bundle* texts, const std::string& link, Make make)
        : bundle(texts ? *texts : fake.bundle), frontEnd(make(*this)) {
        fake.peer.answer("create.php", fake.propertyLists.encode(PropertyList::Dictionary{
                                           {"StatusCode", 0}, {"link", link}}));
        fake.peer.answer("get.php", fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.peer.answer("update.php", fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.router.grantAll("203.0.113.7");
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

    FakePlatform fake;
    platform::Bundle& bundle;
    GivenExplanations explanations;
    platform::QtMainLoop loop;
    FrontEnd frontEnd;
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
                            frontEnd.application,
                            frontEnd.alerts,
                            frontEnd.windowSystem,
                            frontEnd.sharingServicePicker,
                            frontEnd.pasteboard,
                            workspace(),
                            fake.authorization,
                            frontEnd.feedback}};

  private:
    // The desktop's would start a browser.
    platform::Workspace& workspace() {
        if constexpr (std::is_same_v<FrontEnd, platform::Terminal>)
            return frontEnd.workspace;
        else
            return fake.workspace;
    }
};

}  // namespace zelvo::test
