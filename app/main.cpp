#include <QApplication>
#include <cstdio>
#include <optional>
#include <string>

#include "app/AppDelegate.h"
#include "app/KVView.h"
#include "platform/Explanations.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/SingleInstance.h"
#include "platform/linux/base/Environment.h"
#include "platform/linux/base/StandardDescriptors.h"
#include "platform/linux/base/SystemLog.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/core/CommandLine.h"
#include "platform/qt/core/Display.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/qt/core/RowPrinter.h"
#include "platform/qt/window/MainWindow.h"
#include "platform/terminal/Terminal.h"
#include "platform/terminal/TerminalView.h"

using namespace zelvo;
using namespace zelvo::platform;

namespace {

template <typename FrontEnd>
Platform assemble(QtMainLoop& loop, LinuxPlatform& system, FrontEnd& frontEnd) {
    return {.mainQueue = loop,
            .runLoop = loop,
            .log = system.log(),
            .dynamicStore = system.dynamicStore(),
            .hardware = system.hardware(),
            .services = system.services(),
            .sockets = system.sockets(),
            .processes = system.processes(),
            .processInfo = system.processInfo(),
            .inputSources = system.inputSources(),
            .random = system.random(),
            .digest = system.digest(),
            .addresses = system.addresses(),
            .propertyLists = system.propertyLists(),
            .userDefaults = system.userDefaults(),
            .bundle = system.bundle(),
            .urlSession = system.urlSession(),
            .sharingServiceOrigin = system.sharingServiceOrigin(),
            .natPortMapping = system.natPortMapping(),
            .application = frontEnd.application,
            .alerts = frontEnd.alerts,
            .windowSystem = frontEnd.windowSystem,
            .sharingServicePicker = frontEnd.sharingServicePicker,
            .pasteboard = frontEnd.pasteboard,
            .workspace = frontEnd.workspace,
            .authorization = system.authorization(),
            .feedback = frontEnd.feedback};
}

// A quit ends the server itself, and has its own way down.
void watchTheServer(LinuxPlatform& system, AppDelegate& controller) {
    system.whenScreenSharingEnds([&controller] {
        if (!controller.isQuitting().value())
            controller.applicationDidBecomeActive();
    });
}

[[nodiscard]] Subscription hurryAtQuit(LinuxPlatform& system, AppDelegate& controller) {
    return controller.isQuitting().subscribe([&system](bool quits) {
        if (quits)
            system.quitBegins();
    });
}

/// None, after saying so, while another Zelvo of this user runs.
std::optional<SingleInstance> onlyInstance() {
    auto stateHome = Environment::ofProcess().stateHome;
    SingleInstance instance(stateHome.empty() ? stateHome : stateHome + "/zelvo");
    if (instance.isFirst())
        return instance;
    std::fputs("zelvo: Zelvo is running already.\n", stderr);
    return std::nullopt;
}

int runInWindow(int& argc, char** argv) {
    QtDesktop::prepareProcess();
    // Outlives the instance: it ends by handing what was copied to the clipboard manager, which may
    // take its time, while the user may start Zelvo again.
    QApplication application(argc, argv);
    auto instance = onlyInstance();
    if (!instance)
        return 1;
    QtMainLoop loop;
    LinuxPlatform system(loop);
    QtDesktop desktop(loop, system.bundle(), system.explanations(),
                      [&] { return system.log().recentLines(); });
    AppDelegate controller(assemble(loop, system, desktop));
    RowPrinter rows(controller);

    auto* content = new KVView;
    MainWindow window(content, {controller, controller, system.explanations(), desktop.application,
                                system.bundle(), loop});
    controller.setWindow(&window);
    controller.setShareButton(&window.shareButton());
    controller.setContainerView(content);
    desktop.attach(window, controller, controller);

    watchTheServer(system, controller);
    auto hurry = hurryAtQuit(system, controller);
    window.show();
    loop.async([&] { controller.applicationDidFinishLaunching(); });
    const auto status = loop.run();
    desktop.application.showLastWords(system.explanations().withdrawal().value());
    return status;
}

int runInTerminal(int& argc, char** argv) {
    QCoreApplication application(argc, argv);
    auto instance = onlyInstance();
    if (!instance)
        return 1;
    QtMainLoop loop;
    LinuxPlatform system(loop);
    Terminal terminal(loop, system.bundle(), system.explanations());
    AppDelegate controller(assemble(loop, system, terminal));
    TerminalView view(terminal, controller, controller, system.explanations(), system.bundle());

    watchTheServer(system, controller);
    auto hurry = hurryAtQuit(system, controller);
    loop.async([&] { controller.applicationDidFinishLaunching(); });
    return loop.run();
}

}  // namespace

int main(int argc, char* argv[]) {
    occupyStandardDescriptors();
    if (auto status = answerCommandLine(argc, argv))
        return *status;
    return displayIsThere() ? runInWindow(argc, argv) : runInTerminal(argc, argv);
}
