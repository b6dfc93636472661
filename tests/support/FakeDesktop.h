#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Alerts.h"
#include "platform/Application.h"
#include "platform/Authorization.h"
#include "platform/Feedback.h"
#include "platform/Pasteboard.h"
#include "platform/SharingServicePicker.h"
#include "platform/Window.h"
#include "platform/Workspace.h"
#include "tests/support/ManualLoop.h"

namespace zelvo::test {

class FakeApplication : public platform::Application {
  public:
    void terminate() override {
        ++terminations;
        if (onTerminate)
            onTerminate();
    }
    void replyToApplicationShouldTerminate(bool yes) override { replies.push_back(yes); }
    void setActivationPolicy(platform::ActivationPolicy wanted) override { policy = wanted; }
    void displayDockTile() override { ++dockTileDrawn; }
    void activateIgnoringOtherApps(bool) override { ++activations; }

    std::function<void()> onTerminate;
    int terminations = 0;
    std::vector<bool> replies;
    std::optional<platform::ActivationPolicy> policy;
    int dockTileDrawn = 0;
    int activations = 0;
};

class FakeAlerts : public platform::Alerts {
  public:
    struct Shown {
        platform::Alert alert;
        std::function<void(int)> done;
    };

    void beginSheet(platform::Alert alert, std::function<void(int)> done) override {
        ++count;
        shown.push_back({std::move(alert), std::move(done)});
    }

    /// Answers the sheet that is up.
    void press(int response) {
        auto sheet = std::move(shown.front());
        shown.pop_front();
        sheet.done(response);
    }

    std::deque<Shown> shown;
    int count = 0;
};

class FakeButton : public platform::Button {
  public:
    void sendActionOn(platform::EventMask wanted) override { mask = wanted; }
    platform::Rect bounds() const override { return {0, 0, 80, 24}; }
    std::optional<platform::EventMask> mask;
};

class FakeView : public platform::BackgroundView {
  public:
    void setBackgroundColor(const platform::Color& wanted) override { color = wanted; }
    std::optional<platform::Color> color;
};

class FakeWindow : public platform::Window {
  public:
    void makeFirstResponder(platform::Button& button) override { focused.push_back(&button); }
    std::vector<platform::Button*> focused;
};

class FakeWindowSystem : public platform::WindowSystem {
  public:
    platform::Rect contentRectForFrameRect(const platform::Rect& frame,
                                           platform::WindowStyle) const override {
        ++asked;
        return {frame.x, frame.y, frame.width, frame.height - 22};
    }
    mutable int asked = 0;
};

class FakeSharingServicePicker : public platform::SharingServicePicker {
  public:
    void show(const std::vector<std::string>& wanted,
              platform::SharingServicePickerDelegate& delegate, const platform::Rect& wantedRect,
              platform::Button* wantedView, platform::RectEdge wantedEdge) override {
        items = wanted;
        rect = wantedRect;
        view = wantedView;
        edge = wantedEdge;
        services = delegate.sharingServicesForItems(wanted, proposed);
    }

    std::vector<platform::SharingService> proposed{{"E-mail", "", "", [] {}}};
    std::vector<platform::SharingService> services;
    std::vector<std::string> items;
    platform::Rect rect;
    platform::Button* view = nullptr;
    platform::RectEdge edge{};
};

class FakePasteboard : public platform::Pasteboard {
  public:
    void clearContents() override { objects.clear(); }
    void writeObjects(const std::vector<platform::PasteboardObject>& added) override {
        objects.insert(objects.end(), added.begin(), added.end());
    }
    std::vector<platform::PasteboardObject> objects{
        {platform::PasteboardObject::Kind::String, "from before"}};
};

class FakeWorkspace : public platform::Workspace {
  public:
    void openUrl(const std::string& url) override { opened.push_back(url); }
    std::vector<std::unique_ptr<platform::RunningApplication>> runningApplications() override;

    std::vector<std::string> opened;
    std::vector<std::string> running;
    /// Index in `running` of each one that was asked to quit.
    std::vector<std::size_t> quit;
};

/// Grants, refuses or fails as told, and records what was started.
class FakeAuthorization : public platform::Authorization {
  public:
    std::int32_t create(const std::string& tool,
                        std::unique_ptr<platform::AuthorizationReference>& reference) override;

    struct Request {
        std::string right;
        std::uint32_t flags = 0;
    };
    std::int32_t createStatus = 0;
    std::int32_t rightStatus = 0;
    std::int32_t executeStatus = 0;
    std::vector<Request> requests;
    /// Base names of the tools that were started.
    std::vector<std::string> tools;
    std::vector<std::string> toolPaths;
    std::vector<std::uint32_t> freed;
    int alive = 0;
    std::function<void(const std::string& tool)> onTool;

  private:
    struct Reference;
};

class FakeFeedback : public platform::Feedback {
  public:
    void sendTrackingReport() override { calls.emplace_back("tracking"); }
    void setupIssuesController(bool reporting) override {
        calls.emplace_back(reporting ? "issues on" : "issues off");
    }
    void showFeedbackDialog(int mode) override {
        calls.push_back("feedback " + std::to_string(mode));
    }
    std::vector<std::string> calls;
};

}  // namespace zelvo::test
