#include <malloc.h>
#include <unistd.h>

#include <QApplication>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "app/AppDelegate.h"
#include "app/KVView.h"
#include "doctor/Doctor.h"
#include "doctor/FindingsPrinter.h"
#include "platform/Explanations.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/SingleInstance.h"
#include "platform/linux/base/CrashFile.h"
#include "platform/linux/base/Debug.h"
#include "platform/linux/base/Environment.h"
#include "platform/linux/base/IdleMemory.h"
#include "platform/linux/base/StandardDescriptors.h"
#include "platform/linux/base/SystemLog.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/content/RowPrinter.h"
#include "platform/qt/core/CommandLine.h"
#include "platform/qt/core/Display.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/qt/core/SessionBus.h"
#include "platform/qt/window/MainWindow.h"
#include "platform/terminal/QuestionLines.h"
#include "platform/terminal/Terminal.h"
#include "platform/terminal/TerminalAuthorization.h"
#include "platform/terminal/TerminalView.h"

using namespace zelvo;
using namespace zelvo::platform;

namespace {

template <typename FrontEnd>
Platform assemble(QtMainLoop& loop, LinuxPlatform& system, FrontEnd& frontEnd,
                  Authorization& authorization) {
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
            .authorization = authorization,
            .feedback = frontEnd.feedback};
}

// A quit ends the server itself, and has its own way down.
Subscription watchTheServer(LinuxPlatform& system, QtMainLoop& loop, AppDelegate& controller) {
    system.whenScreenSharingEnds([&controller] {
        if (!controller.isQuitting().value())
            controller.applicationDidBecomeActive();
    });
    return system.enableToolWorks().subscribe([&loop](bool works) { loop.hurry(works); });
}

[[nodiscard]] Subscription hurryAtQuit(LinuxPlatform& system, AppDelegate& controller) {
    return controller.isQuitting().subscribe([&system](bool quits) {
        if (quits)
            system.quitBegins();
    });
}

// Waiting for a viewer may take hours. After ten seconds all is done that the last change began.
[[nodiscard]] Subscription restWhileWaiting(QtMainLoop& loop, AppDelegate& controller) {
    auto rest = std::make_shared<std::unique_ptr<Perform>>();
    return controller.zelvoStatusProperty().subscribe([&loop, rest](std::int32_t status) {
        const bool waits = status == ZelvoStatusWaitingForConnection;
        *rest = waits ? loop.performAfterDelay(std::chrono::seconds(10), restMemory) : nullptr;
    });
}

/// None, after saying so, while another Zelvo of this user runs or may run.
std::optional<SingleInstance> onlyInstance() {
    auto environment = Environment::ofProcess();
    const auto& stateHome = environment.stateHome;
    SingleInstance instance(stateHome.empty() ? stateHome : stateHome + "/zelvo",
                            environment.runtimeFolder, environment.configHome);
    switch (instance.outcome()) {
        case SingleInstance::Outcome::First:
            return instance;
        case SingleInstance::Outcome::Second:
            std::fputs("zelvo: Zelvo is running already.\n", stderr);
            break;
        case SingleInstance::Outcome::Unsure:
            std::fprintf(stderr,
                         "zelvo: Zelvo cannot make sure that it runs only once: neither \"%s\" nor "
                         "\"%s\" can be written.\n",
                         stateHome.c_str(), environment.runtimeFolder.c_str());
    }
    return std::nullopt;
}

int runInWindow(int& argc, char** argv, const CommandLine& commandLine) {
    QtDesktop::prepareProcess();
    // Outlives the instance: it ends by handing what was copied to the clipboard manager, which may
    // take its time, while the user may start Zelvo again.
    QApplication application(argc, argv);
    auto instance = onlyInstance();
    if (!instance)
        return 1;
    QtMainLoop loop([](const std::string& event) { debug("loop", event); });
    LinuxPlatform system(loop);
    QtDesktop desktop(loop, system.bundle(), system.explanations(), system.viewers(),
                      system.wayIn(), system.preferences(),
                      [&] { return system.log().recentLines(); });
    AppDelegate controller(assemble(loop, system, desktop, system.authorization()));
    RowPrinter rows(controller, commandLine.printsLink);
    std::optional<QuestionLines> questions;
    if (commandLine.asksInTerminal)
        questions.emplace(system.viewers(), system.wayIn(), controller, system.explanations(),
                          system.bundle());

    auto* content = new KVView;
    MainWindow window(
        content, {controller, controller, system.explanations(), desktop.application,
                  system.bundle(), loop, system.viewers(), system.wayIn(), system.preferences()});
    controller.setWindow(&window);
    controller.setShareButton(&window.shareButton());
    controller.setContainerView(content);
    desktop.attach(window, controller, controller);

    auto watch = watchTheServer(system, loop, controller);
    auto hurry = hurryAtQuit(system, controller);
    auto rest = restWhileWaiting(loop, controller);
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
    QtMainLoop loop([](const std::string& event) { debug("loop", event); });
    LinuxPlatform system(loop);
    const bool errorsAreSeen = ::isatty(STDERR_FILENO) == 1;
    Terminal terminal(loop, system.bundle(), system.explanations(),
                      [&] { return system.log().recentLines(); });
    if (terminal.console.screen() && errorsAreSeen)
        system.log().keepOffStandardError();
    TerminalAuthorization authorization(system.authorization(), terminal.console);
    AppDelegate controller(assemble(loop, system, terminal, authorization));
    TerminalView view({terminal, controller, controller, system.explanations(), system.bundle(),
                       system.viewers(), system.wayIn(), system.preferences()});

    auto watch = watchTheServer(system, loop, controller);
    auto hurry = hurryAtQuit(system, controller);
    auto rest = restWhileWaiting(loop, controller);
    loop.async([&] { controller.applicationDidFinishLaunching(); });
    return loop.run();
}

int runDoctor(int& argc, char** argv, bool asJson) {
    QCoreApplication application(argc, argv);
    QtMainLoop loop;
    // What is for programs and reports is in one language.
    doctor::Doctor doctor(loop, Environment::ofProcess(), asJson);
    loop.async([&] {
        doctor.examine([asJson](const auto& findings) {
            QCoreApplication::exit(doctor::printFindings(findings, asJson));
        });
    });
    return loop.run();
}

/// False, after saying so, where the environment forbids a start.
bool environmentAllows() {
    const auto refusals = Environment::ofProcess().refusals;
    for (const auto& refusal : refusals)
        std::fprintf(stderr, "zelvo: %s\n", refusal.c_str());
    return refusals.empty();
}

}  // namespace

int main(int argc, char* argv[]) {
    // The threads wait nearly always; an arena for each is memory that nobody uses.
    ::mallopt(M_ARENA_MAX, 1);
    occupyStandardDescriptors();
    leaveNoCrashFile();
    const auto commandLine = readCommandLine(argc, argv);
    if (commandLine.exitStatus)
        return *commandLine.exitStatus;
    if (!environmentAllows())
        return 2;
    for (const auto& variable : passOverMuteBuses())
        std::fprintf(stderr, "zelvo: The message bus of %s does not answer; going on without it.\n",
                     qPrintable(variable));
    if (commandLine.examines)
        return runDoctor(argc, argv, commandLine.asJson);
    return displayIsThere() ? runInWindow(argc, argv, commandLine) : runInTerminal(argc, argv);
}
