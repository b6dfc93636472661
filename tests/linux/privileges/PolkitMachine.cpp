#include "tests/linux/privileges/PolkitMachine.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace zelvo::test {

namespace {

namespace files = std::filesystem;

void write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

// Activation starts polkitd with the first question, which then waits for it.
constexpr const char* busConfiguration = R"(<busconfig>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <servicedir>/mnt/services</servicedir>
  <policy context="default">
    <allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
  </policy>
</busconfig>)";

constexpr const char* service = R"([D-BUS Service]
Name=org.freedesktop.PolicyKit1
Exec=/usr/lib/polkit-1/polkitd --no-debug
)";

constexpr const char* rules = R"(polkit.addAdminRule(function() { return ["unix-user:0"]; });
polkit.addRule(function(action, subject) {
    if (action.id != "app.zelvo.Zelvo.screen-sharing") return polkit.Result.NO;
    if (subject.user == "zelvo-granted") return polkit.Result.YES;
    if (subject.user == "zelvo-refused") return polkit.Result.NO;
});
)";

// In one piece, since two tools may be at work.
constexpr const char* toolCommons = R"sh(answer=$(
    echo "tool=$0 $# uid=$(id -ru):$(id -u) groups=$(id -G) umask=$(umask) folder=$(pwd)"
    echo "input=$(readlink /proc/self/fd/0)"
    env
)
printf '%s\nend\n' "$answer" >/mnt/answer
echo "a message" >&2
)sh";

}  // namespace

PolkitMachine::~PolkitMachine() {
    stopBus();
    ::close(answer_);
    ::close(journal_);
}

std::string PolkitMachine::start() {
    if (::geteuid() != 0)
        return "only root makes mount namespaces";
    for (const char* program :
         {"/usr/bin/pkexec", "/usr/lib/polkit-1/polkitd", "/usr/bin/dbus-daemon"}) {
        if (!files::exists(program))
            return std::string(program) + " is not installed";
    }
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return std::string("no mount namespace: ") + std::strerror(errno);
    for (const char* folder : {"/mnt", "/run", "/etc/polkit-1", "/usr/share/polkit-1"}) {
        if (::mount("tmpfs", folder, "tmpfs", 0, "mode=755") != 0)
            return std::string(folder) + " cannot be covered: " + std::strerror(errno);
    }
    install();
    if (::mount("/mnt/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr) != 0)
        return std::string("/etc/passwd cannot be covered: ") + std::strerror(errno);
    journal_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, "/run/systemd/journal/stdout"};
    if (::bind(journal_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(journal_, 8) != 0)
        return std::string("no journal: ") + std::strerror(errno);
    startBus();
    return "";
}

void PolkitMachine::install() {
    ::umask(022);
    for (const char* folder :
         {tools, "/mnt/services", "/etc/polkit-1/rules.d", "/usr/share/polkit-1/actions",
          "/usr/share/polkit-1/rules.d", "/run/dbus", "/run/systemd/journal"})
        files::create_directories(folder);
    files::copy_file("/etc/passwd", "/mnt/passwd");
    auto entry = [](const char* name, uid_t id) {
        auto number = std::to_string(id);
        return std::string(name) + ":x:" + number + ":" + number + "::/nonexistent:/bin/sh\n";
    };
    std::ofstream("/mnt/passwd", std::ios::app)
        << entry("zelvo-granted", granted) << entry("zelvo-refused", refused)
        << entry("zelvo-asked", asked);
    files::create_directory(ownFolder);
    EXPECT_EQ(::chown(ownFolder, granted, granted), 0);
    EXPECT_EQ(::chmod(ownFolder, 0700), 0);

    write("/mnt/bus.conf", busConfiguration);
    write("/mnt/services/polkit.service", service);
    write("/etc/polkit-1/rules.d/10-test.rules", rules);
    files::copy_file(ZELVO_BUILT_POLICY, "/usr/share/polkit-1/actions/app.zelvo.Zelvo.policy");
    files::copy_file(ZELVO_BUILT_HELPER, helper);
    EXPECT_EQ(::mkfifo("/mnt/answer", 0600), 0);
    answer_ = ::open("/mnt/answer", O_RDWR | O_CLOEXEC);
    for (const char* name :
         {"enable-screen-sharing-and-guess-access.tool",
          "disable-screen-sharing-and-guess-access.tool", "disconnect-screen-sharing.tool"})
        write(std::string(tools) + "/" + name, ". \"$(dirname \"$0\")/screen-sharing.sh\"\n");
    write(std::string(tools) + "/screen-sharing.sh", toolCommons);
}

void PolkitMachine::startBus() {
    std::array<int, 2> address;
    ASSERT_EQ(::pipe(address.data()), 0);
    bus_ = ::fork();
    if (bus_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(address[1], 3);
        // It talks of every program that it starts.
        ::close(STDERR_FILENO);
        ::execl("/usr/bin/dbus-daemon", "dbus-daemon", "--config-file=/mnt/bus.conf", "--nofork",
                "--nopidfile", "--nosyslog", "--print-address=3", nullptr);
        ::_exit(127);
    }
    ::close(address[1]);
    char c = 0;
    while (::read(address[0], &c, 1) == 1 && c != '\n') {
    }
    ::close(address[0]);
    EXPECT_EQ(c, '\n') << "the bus does not start";
}

void PolkitMachine::stopBus() {
    if (bus_ > 0) {
        // polkitd ends with its bus.
        ::kill(bus_, SIGTERM);
        ::waitpid(bus_, nullptr, 0);
        files::remove("/run/dbus/system_bus_socket");
    }
    bus_ = -1;
}

std::string PolkitMachine::answer() const {
    std::string text;
    while (!text.ends_with("end\n")) {
        pollfd file{answer_, POLLIN, 0};
        char c = 0;
        if (::poll(&file, 1, 10000) <= 0 || ::read(answer_, &c, 1) != 1)
            return text + "(no answer)";
        text += c;
    }
    int messages = ::accept4(journal_, nullptr, nullptr, SOCK_CLOEXEC);
    text += readToEnd(messages);
    ::close(messages);
    return text;
}

bool PolkitMachine::isQuiet() const {
    pollfd file{answer_, POLLIN, 0};
    return ::poll(&file, 1, 0) == 0;
}

std::string readToEnd(int descriptor) {
    std::string text;
    std::array<char, 1024> part;
    while (true) {
        auto count = ::read(descriptor, part.data(), part.size());
        if (count > 0)
            text.append(part.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            return text;
    }
}

std::string asUser(uid_t user, const std::function<std::string()>& work,
                   const std::function<void(pid_t)>& prepare) {
    std::array<int, 2> go;
    std::array<int, 2> result;
    EXPECT_TRUE(::pipe2(go.data(), O_CLOEXEC) == 0 && ::pipe2(result.data(), O_CLOEXEC) == 0);
    auto child = ::fork();
    if (child == 0) {
        ::close(go[1]);
        ::close(result[0]);
        ::setsid();
        if (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 ||
            ::setresuid(user, user, user) != 0)
            ::_exit(1);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::signal(SIGPIPE, SIG_IGN);
        char c = 0;
        (void)!::read(go[0], &c, 1);
        auto text = work();
        (void)!::write(result[1], text.data(), text.size());
        ::_exit(0);
    }
    ::close(go[0]);
    ::close(result[1]);
    if (prepare)
        prepare(child);
    EXPECT_EQ(::write(go[1], "x", 1), 1);
    ::close(go[1]);
    auto text = readToEnd(result[0]);
    ::close(result[0]);
    ::waitpid(child, nullptr, 0);
    return text;
}

}  // namespace zelvo::test
