#pragma once

#include <QMainWindow>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "opener/session/Session.h"
#include "opener/session/SessionLines.h"

class QStackedWidget;

namespace zelvo::platform {
class StatusLabel;
class UserDefaults;
}  // namespace zelvo::platform

namespace zelvo::opener {

class SessionBar;
class StartPage;
class StatePage;
class ViewerWidget;

/// One link at a time, from its field to the picture and back. Main thread only.
class OpenerWindow final : public QMainWindow {
  public:
    struct Surroundings {
        Session::Surroundings session;
        platform::UserDefaults& settings;
        /// The folder of the images.
        QString images;
        bool viewOnly = false;
        /// The helper's name for this time; empty for the one that is kept.
        std::string name = {};
        /// Takes lines for scripts, where somebody wants them.
        std::function<void(const std::string& line)> say = {};
        /// Told of each end of a session.
        std::function<void()> ended = {};
    };

    /// What surrounds it outlives this object.
    explicit OpenerWindow(Surroundings surroundings);
    ~OpenerWindow() override;

    /// What somebody handed over. Begins at once where it is a link and the helper's name is known.
    void open(const QString& text);
    /// Asks for a link.
    void ask();
    /// Nothing is under way that another link would end.
    bool takesLinks() const;
    /// What a script is to know once the window is closed.
    ExitStatus exitStatus() const;

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

  private:
    QWidget* withNotice();
    std::string knownName() const;
    void begin(const sealing::ShareLink& link, const std::string& name);
    void showState(const SessionState& state);
    void showPicture(const SessionState& state);
    void showWords(const SessionState& state);
    void rfbBegan(platform::FileDescriptor rfb);
    void makeViewer();
    /// Below the picture, for a while; 0 is for as long as the picture is there.
    void tell(const QString& notice, int milliseconds);
    void firstPictureCame();

    Surroundings surroundings_;
    QStackedWidget* pages_ = nullptr;
    StartPage* startPage_ = nullptr;
    StatePage* statePage_ = nullptr;
    ViewerWidget* viewer_ = nullptr;
    SessionBar* bar_ = nullptr;
    platform::StatusLabel* notice_ = nullptr;
    QTimer endOfNotice_;
    bool hasPicture_ = false;
    std::unique_ptr<Session> session_;
    std::optional<SessionLines> lines_;
    platform::Subscription subscription_;
};

}  // namespace zelvo::opener
