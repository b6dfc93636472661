#pragma once

#include "platform/Platform.h"
#include "tests/support/FakeDesktop.h"
#include "tests/support/FakeHost.h"
#include "tests/support/FakeNetwork.h"
#include "tests/support/ManualLoop.h"

namespace zelvo::test {

/// A whole operating system that works in memory, on virtual time, and records what was asked of
/// it.
struct FakePlatform {
    FakePlatform() = default;
    /// What still waits is dropped while the services are there.
    ~FakePlatform() {
        loop.close();
        peer.drop();
    }

    /// Screen Sharing as the core sees it: listening, and asking before it lets a viewer in.
    void screenSharing(bool on) {
        sockets.listen(on);
        propertyLists.files["/Library/Preferences/com.apple.RemoteManagement.plist"] =
            PropertyList::Dictionary{{"ScreenSharingReqPermEnabled", on}};
    }

    ManualLoop loop;
    RecordingLog log;
    FakeDynamicStore dynamicStore;
    FakeHardwareRegistry hardware;
    FakeServicesDatabase services;
    FakeSocketTable sockets;
    FakeProcessTable processes;
    FakeProcessInfo processInfo;
    FakeTextInputSources inputSources;
    FakeRandom random;
    FakeMessageDigest digest;
    FakeAddressParser addresses;
    FakePropertyListReader propertyLists;
    FakeUserDefaults userDefaults;
    FakeBundle bundle;
    RecordingPeer peer{loop};
    ScriptedRouter router{loop};
    FakeApplication application;
    FakeAlerts alerts;
    FakeWindowSystem windowSystem;
    FakeSharingServicePicker sharingServicePicker;
    FakePasteboard pasteboard;
    FakeWorkspace workspace;
    FakeAuthorization authorization;
    FakeFeedback feedback;

    /// The whole system with these, and a desktop from elsewhere.
    template <typename Desktop>
    platform::Platform with(Desktop& desktop, platform::Bundle& texts, platform::Workspace& openers,
                            platform::UrlSession& session) {
        // clang-format off
        return platform::Platform{
            loop, loop, log, dynamicStore, hardware, services, sockets, processes, processInfo,
            inputSources, random, digest, addresses, propertyLists, userDefaults, texts, session,
            "https://share.example", router, desktop.application, desktop.alerts,
            desktop.windowSystem, desktop.sharingServicePicker, desktop.pasteboard, openers,
            authorization, desktop.feedback};
        // clang-format on
    }
    platform::Platform platform{with(*this, bundle, workspace, peer)};
};

}  // namespace zelvo::test
