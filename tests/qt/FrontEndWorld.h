#pragma once

#include <chrono>
#include <string>
#include <type_traits>

#include "app/AppDelegate.h"
#include "platform/Explanations.h"
#include "platform/linux/property_lists/UserPreferences.h"
#include "platform/linux/relay/RelaySettings.h"
#include "platform/qt/core/QtMainLoop.h"
#include "tests/qt/Wait.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/FakeViewers.h"

namespace zelvo::platform {
class Terminal;
}

namespace zelvo::test {

struct GivenExplanations final : platform::Explanations {
    const platform::Observable<std::string>& screenSharing() const override { return sharing; }
    const platform::Observable<std::string>& screenLimits() const override { return limits; }
    const platform::Observable<std::string>& router() const override { return routing; }
    const platform::Observable<std::string>& way() const override { return wayIn; }
    const platform::Observable<std::string>& keptLink() const override { return kept; }
    const platform::Observable<std::string>& withdrawal() const override { return remaining; }
    std::string routerNews() const override { return news; }
    std::string news;
    platform::Observable<std::string> sharing;
    platform::Observable<std::string> limits;
    platform::Observable<std::string> routing;
    platform::Observable<std::string> wayIn;
    platform::Observable<std::string> kept;
    platform::Observable<std::string> remaining;
};

/// Runs the jobs that wait.
inline void turn(platform::QtMainLoop& loop) {
    bool turned = false;
    loop.async([&] { turned = true; });
    waitFor([&] { return turned; });
}

/// The real controller in a real front end: the system below is the fake one, whose service and
/// router say yes.
template <typename FrontEnd>
struct FrontEndWorld {
    /// `make` gives the front end for this world. Null texts are the fake ones: their keys.
    template <typename Make>
    FrontEndWorld(platform::Bundle* texts, const std::string& link, Make make)
        : bundle(texts ? *texts : fake.bundle), frontEnd(make(*this)) {
        answerWith(link);
        fake.peer.answer("get.php", fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.peer.answer("update.php", fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.router.grantAll("203.0.113.7");
    }

    void answerWith(const std::string& link) {
        fake.peer.answer("create.php", fake.propertyLists.encode(PropertyList::Dictionary{
                                           {"StatusCode", 0}, {"link", link}}));
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
    platform::FakeViewers viewers;
    platform::RelaySettings wayIn{fake.userDefaults, "https://service.example"};
    platform::UserPreferences preferences{fake.userDefaults};
    platform::QtMainLoop loop;
    FrontEnd frontEnd;
    AppDelegate controller{fake.with(frontEnd, bundle, workspace(), fake.peer)};

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
