#pragma once

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace zelvo::test {

/// A machine with polkit and installed helpers: a mount namespace of the test process, with a
/// system bus and a real polkitd. Nothing of it is seen outside, or outlives the process.
class PolkitMachine {
  public:
    /// Polkit asks about "nobody", and refuses "daemon".
    static constexpr uid_t asked = 65534;
    static constexpr uid_t refused = 1;

    static constexpr const char* helpers = "/mnt/helpers";
    /// The installed tools. Started, they tell in the answer who and where they are.
    static constexpr const char* tools = "/mnt/share/zelvo/resources";
    static constexpr std::array names{"enable-screen-sharing-and-guess-access.tool",
                                      "disable-screen-sharing-and-guess-access.tool",
                                      "disconnect-screen-sharing.tool"};

    /// Why there is no such machine; empty when it runs.
    std::string start() {
        if (::geteuid() != 0)
            return "only root makes mount namespaces";
        for (const char* program :
             {"/usr/bin/pkexec", "/usr/lib/polkit-1/polkitd", "/usr/bin/dbus-daemon"}) {
            if (!std::filesystem::exists(program))
                return std::string(program) + " is not installed";
        }
        bool isCovered = ::unshare(CLONE_NEWNS) == 0 &&
                         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        for (const char* folder : {"/mnt", "/run", "/etc/polkit-1", "/usr/share/polkit-1"})
            isCovered = isCovered && ::mount("tmpfs", folder, "tmpfs", 0, "mode=755") == 0;
        if (!isCovered)
            return std::string("no file system of its own: ") + std::strerror(errno);
        install();
        startBus();
        return "";
    }

    void startBus() {
        // It talks of every program that it starts; polkitd, which the first question starts, ends
        // with it.
        bus_ = std::make_unique<ChildProcess>(
            "exec dbus-daemon --config-file=/mnt/bus.conf --nofork --nopidfile --nosyslog "
            "--print-address 2>/dev/null");
        EXPECT_NE(bus_->readLine(), "");
    }
    void stopBus() {
        bus_.reset();
        std::filesystem::remove("/run/dbus/system_bus_socket");
    }

    /// Puts a process into a session in front of the computer, which is on screen, or in which only
    /// somebody else's is.
    static void enterSession(pid_t process, uid_t user, bool isActive) {
        const auto id = std::to_string(user);
        const auto scope = "/user.slice/user-" + id + ".slice/session-1.scope\n";
        write("/run/systemd/sessions/1",
              "UID=" + id + "\nSEAT=seat0\nACTIVE=" + std::to_string(isActive) + "\n");
        write("/run/systemd/users/" + id, isActive ? "STATE=active\n" : "STATE=online\n");
        write("/mnt/cgroup", "1:name=systemd:" + scope + "0::" + scope);
        auto file = "/proc/" + std::to_string(process) + "/cgroup";
        EXPECT_EQ(::mount("/mnt/cgroup", file.c_str(), "", MS_BIND, nullptr), 0);
    }

    /// What a tool that was started tells, sorted: its words, its environment, and what comes to
    /// the journal. Waits for it.
    std::vector<std::string> answer() const {
        std::vector<std::string> lines;
        for (const auto* end : {"end", "a message"}) {
            pollfd file{journal_, POLLIN, 0};
            int journal = *end == 'a' && ::poll(&file, 1, 10000) > 0
                              ? ::accept4(journal_, nullptr, nullptr, SOCK_CLOEXEC)
                              : -1;
            std::string line;
            for (char c = 0; line != end && readByte(journal < 0 ? answer_ : journal, c);) {
                if (c != '\n')
                    line += c;
                else if (line != end)
                    lines.push_back(std::exchange(line, ""));
            }
            ::close(journal);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }
    /// Whether no tool that has not been asked for its answer was started.
    bool isQuiet() const {
        pollfd file{answer_, POLLIN, 0};
        return ::poll(&file, 1, 0) == 0;
    }

    /// The next byte; none at the end, and when none comes in time.
    static bool readByte(int descriptor, char& c) {
        pollfd file{descriptor, POLLIN, 0};
        return ::poll(&file, 1, 10000) > 0 && ::read(descriptor, &c, 1) == 1;
    }

  private:
    static void write(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
    }
    void install();

    int argumentCount_ = 1;
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    QCoreApplication application_{argumentCount_, arguments_};
    std::unique_ptr<ChildProcess> bus_;
    int answer_ = -1;
    int journal_ = -1;
};

inline void PolkitMachine::install() {
    ::umask(022);
    write("/mnt/bus.conf", R"(<busconfig>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <servicedir>/mnt/services</servicedir>
  <policy context="default">
    <allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
  </policy>
</busconfig>)");
    write("/mnt/services/polkit.service",
          "[D-BUS Service]\nName=org.freedesktop.PolicyKit1\n"
          "Exec=/usr/lib/polkit-1/polkitd --no-debug\n");
    write("/etc/polkit-1/rules.d/10-test.rules",
          R"(polkit.addAdminRule(function() { return ["unix-user:0"]; });
polkit.addRule(function(action, subject) {
    if (action.id.indexOf("app.zelvo.Zelvo.") != 0 || subject.user == "daemon")
        return polkit.Result.NO;
});
)");
    for (const char* folder : {"/run/dbus", "/run/systemd/journal", "/usr/share/polkit-1/actions",
                               "/usr/share/polkit-1/rules.d"})
        std::filesystem::create_directories(folder);
    std::filesystem::copy_file(ZELVO_BUILT_POLICY,
                               "/usr/share/polkit-1/actions/app.zelvo.Zelvo.policy");
    std::filesystem::create_directory(helpers);
    for (auto [built, name] : {std::pair{ZELVO_BUILT_HELPER, "/zelvo-screen-sharing-helper"},
                               {ZELVO_BUILT_END_HELPER, "/zelvo-screen-sharing-end-helper"}})
        std::filesystem::copy_file(built, std::string(helpers) + name);
    for (const std::string name : names)
        write(std::string(tools) + "/" + name, ". \"$(dirname \"$0\")/screen-sharing.sh\"\n");
    // In one piece, since two tools may be at work.
    write(std::string(tools) + "/screen-sharing.sh", R"sh(answer=$(
    echo "tool=$0 $# uid=$(id -ru):$(id -u) groups=$(id -G) umask=$(umask) folder=$(pwd)" \
        "input=$(readlink /proc/self/fd/0)"
    env
)
printf '%s\nend' "$answer" >/mnt/answer
echo "a message" >&2
)sh");
    EXPECT_EQ(::mkfifo("/mnt/answer", 0600), 0);
    answer_ = ::open("/mnt/answer", O_RDWR | O_CLOEXEC);
    journal_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, "/run/systemd/journal/stdout"};
    EXPECT_EQ(::bind(journal_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(journal_, 8), 0);
}

/// Does the work in a process of that user, in a session without a terminal, and returns its
/// result; the event loop runs meanwhile. `prepare` is called before, with the process's id, when
/// it is the user's already.
inline std::string asUser(uid_t user, const std::function<std::string()>& work,
                          const std::function<void(pid_t)>& prepare = {}) {
    std::array<int, 2> ends;
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    auto child = ::fork();
    char c = 0;
    if (child == 0) {
        ::close(ends[0]);
        ::setsid();
        if (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 ||
            ::setresuid(user, user, user) != 0)
            ::_exit(1);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::signal(SIGPIPE, SIG_IGN);
        (void)!::write(ends[1], "x", 1);
        (void)!::read(ends[1], &c, 1);
        auto text = work();
        (void)!::write(ends[1], text.data(), text.size());
        ::_exit(0);
    }
    ::close(ends[1]);
    EXPECT_TRUE(PolkitMachine::readByte(ends[0], c)) << "no process of user " << user;
    if (prepare)
        prepare(child);
    EXPECT_EQ(::write(ends[0], "x", 1), 1);
    std::string text;
    pollfd result{ends[0], POLLIN, 0};
    while (::poll(&result, 1, 5) == 0 || ::read(ends[0], &c, 1) == 1) {
        if (result.revents != 0)
            text += c;
        else
            QCoreApplication::processEvents();
    }
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return text;
}

}  // namespace zelvo::test
