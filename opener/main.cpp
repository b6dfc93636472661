#include <malloc.h>

#include <QApplication>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <optional>
#include <string>
#include <utility>

#include "opener/CommandLine.h"
#include "opener/FactsPrinter.h"
#include "opener/channel/SealedConnection.h"
#include "opener/facts/SharingService.h"
#include "opener/window/ApplicationService.h"
#include "opener/window/OpenerTexts.h"
#include "opener/window/OpenerWindow.h"
#include "platform/linux/base/CrashFile.h"
#include "platform/linux/base/Debug.h"
#include "platform/linux/base/Environment.h"
#include "platform/linux/base/StandardDescriptors.h"
#include "platform/linux/base/SystemLog.h"
#include "platform/linux/bundle/InstalledBundle.h"
#include "platform/linux/property_lists/FileUserDefaults.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "platform/qt/content/BundleTranslator.h"
#include "platform/qt/core/Display.h"
#include "platform/qt/core/QtMainLoop.h"
#include "platform/qt/core/QuitSignals.h"
#include "platform/qt/core/SessionBus.h"
#include "platform/qt/widgets/ColorScheme.h"

using namespace zelvo;
using namespace zelvo::opener;

namespace {

constexpr int BadUsage = 2;
/// Whoever is started by the bus is told soon what for.
constexpr int PatienceOfService = 10'000;

int statusOf(ExitStatus status) {
    return static_cast<int>(status);
}

/// What both ways of running stand on.
struct Base {
    platform::Environment environment = platform::Environment::ofProcess();
    platform::PlistReader propertyLists{environment.systemRoot};
    platform::InstalledBundle bundle{{.executableFolder = "",
                                      .languages = environment.languages,
                                      .dataHome = environment.dataHome},
                                     propertyLists};
    platform::BundleTranslator translator{bundle};
    platform::QtMainLoop loop{[](const std::string& event) { platform::debug("loop", event); }};
    SharingService service{loop, environment.serviceOrigin, environment.certificateFile};
};

/// None, after saying why, where the text is no link.
std::optional<sealing::ShareLink> linkIn(const std::string& text) {
    auto read = sealing::parseLink(QString::fromStdString(text).trimmed().toStdString());
    if (auto* link = std::get_if<sealing::ShareLink>(&read))
        return std::move(*link);
    std::fprintf(stderr, "zelvo-open: %s\n",
                 qPrintable(sentenceOf(std::get<sealing::NoLink>(read))));
    return std::nullopt;
}

int printFacts(int& argc, char** argv, const std::string& text) {
    QCoreApplication application(argc, argv);
    Base base;
    const auto link = linkIn(text);
    if (!link)
        return BadUsage;
    base.service.ask(link->identifier, [](const FactsAnswer& answer) {
        if (const auto* why = std::get_if<NoFacts>(&answer)) {
            SessionState state;
            state.stage = Stage::Ended;
            state.ending = endingOf(*why);
            std::fprintf(stderr, "zelvo-open: %s\n", qPrintable(textsOf(state).sentence));
            return QCoreApplication::exit(statusOf(textsOf(state.ending).status));
        }
        std::fputs(printed(std::get<HostFacts>(answer)).c_str(), stdout);
        QCoreApplication::exit(std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    return base.loop.run();
}

void say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

/// The windows of one process: one, but for what the desktop hands over while that is taken.
class Windows {
  public:
    Windows(Base& base, const CommandLine& line)
        : base_(base),
          line_(line),
          settings_(folderOf(base.environment), log_),
          images_(QString::fromStdString(base.bundle.resourcePath())) {}

    OpenerWindow& free() {
        for (auto& window : windows_)
            if (window.takesLinks())
                return window;
        return windows_.emplace_back(OpenerWindow::Surroundings{
            .session = {base_.loop, base_.service,
                        [this](auto target, auto listener) {
                            target.certificateFile = base_.environment.certificateFile;
                            return std::make_unique<SealedConnection>(base_.loop, target,
                                                                      std::move(listener));
                        }},
            .settings = settings_,
            .images = images_,
            .viewOnly = line_.viewOnly,
            .name = helperName(QString::fromStdString(line_.name)),
            .say = line_.says ? say : std::function<void(const std::string&)>(),
            .ended = [this] { sessionEnded(); }});
    }
    bool isEmpty() const { return windows_.empty(); }
    int exitStatus() const {
        return windows_.empty() ? EXIT_SUCCESS : statusOf(windows_.front().exitStatus());
    }

  private:
    static std::string folderOf(const platform::Environment& environment) {
        return environment.configHome.empty() ? "" : environment.configHome + "/zelvo-open";
    }
    void sessionEnded() {
        if (line_.once)
            QCoreApplication::quit();
    }

    Base& base_;
    const CommandLine& line_;
    platform::SystemLog log_{"zelvo-open"};
    platform::FileUserDefaults settings_;
    const QString images_;
    std::deque<OpenerWindow> windows_;
};

void present(OpenerWindow& window) {
    window.show();
    window.raise();
    window.activateWindow();
}

int runInWindow(int& argc, char** argv, const CommandLine& line) {
    // Nothing here is drawn by OpenGL, and its drivers cost more than the rest of the program.
    if (qEnvironmentVariableIsEmpty("QT_XCB_GL_INTEGRATION"))
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    QCoreApplication::setApplicationName("zelvo-open");
    QGuiApplication::setDesktopFileName("app.zelvo.ZelvoOpen");
    QApplication application(argc, argv);
    Base base;
    // Nobody waits for a better one.
    if (line.once && !line.link.empty() && !linkIn(line.link))
        return BadUsage;
    platform::ColorScheme colors;
    Windows windows(base, line);
    platform::QuitSignals quitSignals([] { QCoreApplication::quit(); });

    auto open = [&windows](const QString& link) {
        auto& window = windows.free();
        window.open(link);
        present(window);
    };
    auto ask = [&windows] {
        auto& window = windows.free();
        window.ask();
        present(window);
    };
    ApplicationService service({.activate = ask, .open = open});
    if (line.serves && !service.begin()) {
        std::fputs("zelvo-open: The session bus cannot be served.\n", stderr);
        return EXIT_FAILURE;
    }
    if (line.serves)
        QTimer::singleShot(PatienceOfService, [&] {
            if (windows.isEmpty())
                QCoreApplication::quit();
        });
    if (!line.link.empty())
        open(QString::fromStdString(line.link));
    else if (!line.serves)
        ask();
    base.loop.run();
    return windows.exitStatus();
}

bool environmentAllows() {
    const auto refusals = platform::Environment::ofProcess().refusals;
    for (const auto& refusal : refusals)
        std::fprintf(stderr, "zelvo-open: %s\n", refusal.c_str());
    return refusals.empty();
}

}  // namespace

int main(int argc, char* argv[]) {
    // Before anything else: the link does not stay where everybody can read it.
    const auto line = readCommandLine(argc, argv);
    if (line.exitStatus)
        return *line.exitStatus;
    platform::leaveNoCrashFile();
    ::mallopt(M_ARENA_MAX, 1);
    ::signal(SIGPIPE, SIG_IGN);
    platform::occupyStandardDescriptors();
    if (!environmentAllows())
        return BadUsage;
    if (!line.name.empty() && helperName(QString::fromStdString(line.name)).empty()) {
        std::fputs("zelvo-open: No letter of that name can be shown.\n", stderr);
        return BadUsage;
    }
    int ownName = 1;
    if (line.printsFacts)
        return printFacts(ownName, argv, line.link);
    for (const auto& variable : platform::passOverMuteBuses())
        std::fprintf(stderr,
                     "zelvo-open: The message bus of %s does not answer; going on without it.\n",
                     qPrintable(variable));
    if (!platform::displayIsThere()) {
        std::fputs("zelvo-open: There is no display to show a screen on.\n", stderr);
        return EXIT_FAILURE;
    }
    return runInWindow(ownName, argv, line);
}
