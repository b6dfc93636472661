#pragma once

#include <QMainWindow>
#include <functional>
#include <memory>
#include <vector>

#include "platform/Observable.h"
#include "platform/Window.h"

namespace Ui {
class MainWindow;
}

namespace zelvo::platform {

class Application;
class ApplicationDelegate;
class Bundle;
class Explanations;
class MainWindowModel;
class Preferences;
class QtMainLoop;
class ShareButton;
class Viewers;
class WayIn;
struct Notice;

/// The application's window: a view of the model. Main thread only.
class MainWindow final : public QMainWindow, public Window {
  public:
    /// What the window shows and whom its controls tell. All outlive it.
    struct Surroundings {
        MainWindowModel& model;
        ApplicationDelegate& delegate;
        const Explanations& explanations;
        Application& application;
        const Bundle& bundle;
        QtMainLoop& loop;
        Viewers& viewers;
        WayIn& wayIn;
        Preferences& preferences;
    };

    /// Sets the controls up inside `content`, which becomes the window's own.
    MainWindow(QWidget* content, const Surroundings& surroundings);
    ~MainWindow() override;

    void makeFirstResponder(Button& button) override;

    Button& shareButton();

    /// Called when the user wants to see the question that is open.
    void setShowQuestion(std::function<void()> show) { showQuestion_ = std::move(show); }
    /// Lets nobody stay, nor in who is asked about.
    void disconnectEverybody();

    /// Puts the link's page on the clipboard.
    void copyWebLink();

    /// Shows the sentence in the window's last line.
    void say(const Notice& notice);

  protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void connectControls();
    void connectSettings();
    void applyLook();
    void fitLink();
    void reserveSpace();
    void setControlsEnabled(bool enabled);

    MainWindowModel& model_;
    ApplicationDelegate& delegate_;
    const Bundle& bundle_;
    Viewers& viewers_;
    WayIn& wayIn_;
    Preferences& preferences_;
    std::function<void()> showQuestion_;
    std::unique_ptr<Ui::MainWindow> ui_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
