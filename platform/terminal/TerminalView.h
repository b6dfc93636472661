#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Observable.h"
#include "platform/qt/content/RowPrinter.h"
#include "platform/terminal/QuestionPrompt.h"
#include "platform/terminal/WayInLines.h"

namespace zelvo::platform {

class ApplicationDelegate;
class Bundle;
class Explanations;
class MainWindowModel;
class Preferences;
class Terminal;

/// The model in a terminal: one screen with its rows and the link, or, where the terminal cannot be
/// drawn on, a line for each change; who wants in and who is in, keys for the actions, and words
/// for the answers. Main thread only.
class TerminalView {
  public:
    /// What it shows and whom its keys tell. All outlive it.
    struct Surroundings {
        Terminal& terminal;
        MainWindowModel& model;
        ApplicationDelegate& delegate;
        const Explanations& explanations;
        const Bundle& bundle;
        Viewers& viewers;
        WayIn& wayIn;
        Preferences& preferences;
    };

    explicit TerminalView(
        const Surroundings& surroundings, int output = 1,
        std::function<QuestionPrompt::Clock::time_point()> now = QuestionPrompt::Clock::now);
    ~TerminalView();
    TerminalView(const TerminalView&) = delete;
    TerminalView& operator=(const TerminalView&) = delete;

  private:
    struct Key {
        char key;
        /// As it stands in the window; none where that has no such thing.
        const char* caption;
        void (*press)(TerminalView& view);
        /// Of a switch, whether it is on.
        bool (*isOn)(const TerminalView& view) = nullptr;
    };
    static const std::vector<Key>& keys();

    void observe();
    void take(char byte);
    void takeKey(char key);
    void inputEnded();
    void takeNoMoreRequests();
    void explain();
    void linkChanged();
    void tellWebLink();
    void copyLink();
    void copyWebLink();
    void showMessage(const std::vector<std::string>& items);
    void showKeys();
    void showQrCode();
    void tellQrCode();
    void draw();

    Terminal& terminal_;
    MainWindowModel& model_;
    const Explanations& explanations_;
    const Bundle& bundle_;
    Viewers& viewers_;
    WayIn& wayIn_;
    Preferences& preferences_;
    std::optional<RowPrinter> rows_;
    WayInLines wayInLines_;
    QuestionPrompt prompt_;
    std::string shownReason_;
    std::string shownLink_;
    /// The key that covered the page.
    char covering_ = 0;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
