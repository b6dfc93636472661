#pragma once

#include <QToolBar>
#include <functional>
#include <vector>

#include "opener/session/Session.h"

class QLabel;
class QMenu;

namespace zelvo::opener {

/// What can be done in a session, and what is to be known about it.
class SessionBar final : public QToolBar {
  public:
    /// The menus outlive the bar.
    SessionBar(const std::vector<QMenu*>& menus, std::function<void()> disconnect);

    void showState(const SessionState& state, bool viewOnly);
    /// For whoever has no pointer, or does not get it out of the picture.
    void takeFocus();

  private:
    void addMenu(QMenu* menu);
    QLabel* addLabel(const char* name);

    QWidget* first_ = nullptr;
    QLabel* rights_ = nullptr;
    QLabel* digits_ = nullptr;
};

}  // namespace zelvo::opener
