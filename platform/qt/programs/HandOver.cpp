#include "platform/qt/programs/HandOver.h"

#include <unistd.h>

#include <QElapsedTimer>
#include <QProcess>
#include <chrono>

namespace zelvo::platform {

namespace {

using namespace std::chrono_literals;

// A command that lasted longer has been showing it, and failed at something else.
constexpr std::chrono::milliseconds OpeningTime = 20s;

void startQuietly(QProcess& process, const QStringList& command) {
    process.setProgram(command.first());
    process.setArguments(command.mid(1));
    // Our own output is read by scripts, and Ctrl-C in our terminal is not meant for the browser.
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setChildProcessModifier([] { ::setsid(); });
    process.start();
}

}  // namespace

void handOver(QList<QStringList> commands, const QObject* receiver, std::function<void()> refused) {
    if (commands.isEmpty()) {
        refused();
        return;
    }
    auto command = commands.takeFirst();
    // Nobody's child: a process object ends its process when it is destroyed.
    auto* process = new QProcess;
    QElapsedTimer since;
    since.start();
    auto next = [=] { handOver(commands, receiver, refused); };
    QObject::connect(process, &QProcess::finished, receiver,
                     [=](int status, QProcess::ExitStatus how) {
                         bool opened = how == QProcess::NormalExit && status == 0;
                         if (!opened && !since.hasExpired(OpeningTime.count()))
                             next();
                     });
    QObject::connect(process, &QProcess::errorOccurred, receiver,
                     [=](QProcess::ProcessError error) {
                         if (error == QProcess::FailedToStart)
                             next();
                     });
    QObject::connect(process, &QProcess::finished, process, &QObject::deleteLater);
    QObject::connect(process, &QProcess::errorOccurred, process, [=](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            process->deleteLater();
    });
    startQuietly(*process, command);
}

}  // namespace zelvo::platform
