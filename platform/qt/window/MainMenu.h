#pragma once

#include <functional>

class QMainWindow;

namespace zelvo::platform {

class Application;
class MainWindowModel;
class QtMainLoop;

/// Fills the window's menu bar. While one of its menus is open the loop is tracking. All outlive
/// the window. `disconnect` ends the connection of everybody.
void makeMainMenu(QMainWindow& window, MainWindowModel& model, Application& application,
                  QtMainLoop& loop, std::function<void()> copyWebLink,
                  std::function<void()> disconnect);

}  // namespace zelvo::platform
