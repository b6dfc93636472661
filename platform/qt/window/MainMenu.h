#pragma once

class QMainWindow;

namespace zelvo::platform {

class Application;
class MainWindowModel;
class QtMainLoop;

/// Fills the window's menu bar. While one of its menus is open the loop is tracking. All outlive
/// the window.
void makeMainMenu(QMainWindow& window, MainWindowModel& model, Application& application,
                  QtMainLoop& loop);

}  // namespace zelvo::platform
