#pragma once

#include <QToolBar>
#include <functional>

#include "opener/session/Session.h"

class QLabel;
class QMenu;

namespace zelvo::opener {

/// What can be done in a session, and what is to be known about it.
class SessionBar final : public QToolBar {
  public:
    struct Listener {
        std::function<void(bool fits)> setFits;
        std::function<void(bool isFull)> setFullScreen;
        std::function<void()> disconnect;
    };

    /// The menu outlives the bar.
    SessionBar(QMenu* keys, const Listener& listener);

    void showState(const SessionState& state);
    /// Has its way of being switched on and off elsewhere, too.
    void setFullScreen(bool isFull);

  private:
    QLabel* addLabel(const char* name);

    QAction* fullScreen_ = nullptr;
    QLabel* rights_ = nullptr;
    QLabel* digits_ = nullptr;
};

}  // namespace zelvo::opener
