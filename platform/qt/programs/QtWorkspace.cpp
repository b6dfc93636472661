#include "platform/qt/programs/QtWorkspace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QString>
#include <csignal>

#include "platform/qt/programs/HandOver.h"
#include "platform/qt/programs/SettingsServices.h"

namespace zelvo::platform {

namespace {

constexpr const char* SettingsBundle = "com.apple.systempreferences";

// Of the desktops whose settings have no name on the message bus. As the kernel tells them, cut to
// 15 characters.
constexpr const char* SettingsPrograms[] = {"xfce4-settings-", "cinnamon-settin",
                                            "mate-control-ce"};

class SettingsWindow final : public RunningApplication {
  public:
    explicit SettingsWindow(pid_t pid) : pid_(pid) {}
    std::string bundleIdentifier() const override { return SettingsBundle; }
    void terminate() override { ::kill(pid_, SIGTERM); }

  private:
    pid_t pid_;
};

bool isSettingsProgram(const QString& processFolder) {
    QFile name(processFolder + "/comm");
    if (!name.open(QIODevice::ReadOnly))
        return false;
    auto text = name.readAll().trimmed();
    for (const auto* program : SettingsPrograms)
        if (text == program)
            return true;
    return false;
}

bool isOurs(const QString& processFolder) {
    struct stat facts {};
    return ::stat(QFile::encodeName(processFolder).constData(), &facts) == 0 &&
           facts.st_uid == ::geteuid();
}

}  // namespace

void QtWorkspace::openUrl(const std::string& url) {
    auto address = QString::fromStdString(url);
    handOver({{"xdg-open", address}, {"gio", "open", address}}, &receiver_, [this, url] {
        if (refused_)
            refused_(url);
    });
}

std::vector<std::unique_ptr<RunningApplication>> QtWorkspace::runningApplications() {
    auto found = settingsServices(QDBusConnection::sessionBus());
    const auto entries = QDir("/proc").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const auto& entry : entries) {
        bool isProcess = false;
        auto pid = static_cast<pid_t>(entry.toInt(&isProcess));
        auto folder = "/proc/" + entry;
        if (isProcess && isOurs(folder) && isSettingsProgram(folder))
            found.push_back(std::make_unique<SettingsWindow>(pid));
    }
    return found;
}

}  // namespace zelvo::platform
