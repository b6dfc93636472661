#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QByteArray>
#include <QProcess>
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/privileges/SystemAuthorization.h"
#include "tests/linux/privileges/PolkitAgent.h"
#include "tests/linux/privileges/PolkitMachine.h"

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::string_literals;

namespace {

using Manner = PolkitAgent::Manner;

const std::string tool = "disconnect-screen-sharing.tool";
const SystemAuthorization::Options installedHelper{.helper = PolkitMachine::helper};
constexpr const char* actionPrefix = "app.zelvo.Zelvo.screen-sharing: ";

class CollectingLog : public Log {
  public:
    void line(std::string_view text) override { lines.append(text).append("\n"); }
    void standardError(std::string_view text) override { lines.append(text); }

    std::string lines;
};

class PrivilegesTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        machine = new PolkitMachine;
        reasonAgainst = machine->start();
    }
    static void TearDownTestSuite() { delete machine; }
    void SetUp() override {
        if (!reasonAgainst.empty())
            GTEST_SKIP() << reasonAgainst;
    }
    void TearDown() override { EXPECT_TRUE(reasonAgainst.size() || machine->isQuiet()); }

    static PolkitMachine* machine;
    static std::string reasonAgainst;
};

PolkitMachine* PrivilegesTest::machine = nullptr;
std::string PrivilegesTest::reasonAgainst;

/// The statuses of the right and, if it was granted, of the start, and what was logged.
std::string runTool(SystemAuthorization::Options options = installedHelper,
                    const std::string& path = "/elsewhere/" + tool) {
    CollectingLog log;
    SystemAuthorization authorization(log, std::move(options));
    std::unique_ptr<AuthorizationReference> reference;
    if (authorization.create(reference) != AuthorizationSuccess)
        return "no reference";
    auto right = reference->copyRights("system.privilege.admin", 19);
    auto result = std::to_string(right);
    if (right == 0) {
        result.append(" ").append(std::to_string(reference->executeWithPrivileges(path)));
        if (reference->executeWithPrivileges(path) != AuthorizationDenied)
            result += " and once more";
    }
    reference->free(AuthorizationFlagDestroyRights);
    return result + "\n" + log.lines;
}

/// What pkexec, started as a user who is granted everything, tells: exit status, output and errors.
std::string runHelper(const std::string& input, const QStringList& arguments = {},
                      const QStringList& environment = {}) {
    return asUser(PolkitMachine::granted, [&] {
        QProcess program;
        program.setEnvironment(environment);
        program.start("/usr/bin/pkexec", QStringList(PolkitMachine::helper) + arguments);
        program.write(input.data(), static_cast<qint64>(input.size()));
        program.closeWriteChannel();
        program.waitForFinished();
        return std::to_string(program.exitCode()) + "\n" +
               (program.readAllStandardOutput() + program.readAllStandardError()).toStdString();
    });
}

void expectRefused(const std::string& outcome, const std::string& message) {
    EXPECT_TRUE(outcome.starts_with("1\n")) << outcome;
    EXPECT_TRUE(outcome.ends_with("zelvo: " + message + "\n")) << outcome;
    EXPECT_EQ(outcome.find("started"), outcome.npos);
}

void shell(const std::string& command) {
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

void bindSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(descriptor);
}

}  // namespace

TEST_F(PrivilegesTest, AsksOnceAndStartsTheTool) {
    std::optional<PolkitAgent> agent;
    auto status = asUser(
        PolkitMachine::asked, [] { return runTool() + runTool(); },
        [&](pid_t process) { agent.emplace(process, PolkitMachine::asked, Manner::Grants); });
    EXPECT_EQ(status, "0 0\n0 0\n");
    // No right is kept: each call has a question of its own, and no more than one.
    auto question = actionPrefix +
                    "Zelvo needs an administrator’s permission to switch Screen Sharing on or off, "
                    "or to disconnect a viewer.\n"s;
    EXPECT_EQ(agent->questions(), question + question);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(machine->answer().starts_with("tool="s + PolkitMachine::tools + "/" + tool));
}

TEST_F(PrivilegesTest, TellsFailuresApart) {
    auto with = [&](Manner manner, const char* locale) {
        std::optional<PolkitAgent> agent;
        auto status = asUser(
            PolkitMachine::asked, [] { return runTool(); },
            [&](pid_t process) { agent.emplace(process, PolkitMachine::asked, manner, locale); });
        return status + agent->questions();
    };
    EXPECT_EQ(
        with(Manner::Dismisses, "de_DE.UTF-8"),
        std::to_string(AuthorizationCanceled) +
            "\nError executing command as another user: Request dismissed\n" + actionPrefix +
            "Zelvo braucht die Erlaubnis eines Administrators, um die Bildschirmfreigabe ein- "
            "oder auszuschalten oder einen Gast zu trennen.\n");
    EXPECT_EQ(with(Manner::Fails, "zh_CN.UTF-8"),
              std::to_string(AuthorizationDenied) +
                  "\nError executing command as another user: Not authorized\n"
                  "This incident has been reported.\n" +
                  actionPrefix +
                  "Zelvo 需要管理员许可，才能打开或关闭屏幕共享，或断开对方的连接。\n");

    auto expect = [](uid_t user, const SystemAuthorization::Options& options, std::int32_t status) {
        auto result = asUser(user, [&] { return runTool(options); });
        EXPECT_TRUE(result.starts_with(std::to_string(status) + "\n")) << result;
        EXPECT_GE(std::count(result.begin(), result.end(), '\n'), 2) << "a reason: " << result;
    };
    expect(PolkitMachine::refused, installedHelper, AuthorizationDenied);
    expect(PolkitMachine::asked, installedHelper, AuthorizationInteractionNotAllowed);
    expect(PolkitMachine::granted, {.helper = "/mnt/nowhere"}, AuthorizationInternal);
    expect(PolkitMachine::granted, {.pkexec = "/mnt/nowhere"}, AuthorizationInternal);
    machine->stopBus();
    expect(PolkitMachine::granted, installedHelper, AuthorizationInternal);
    machine->startBus();
}

TEST_F(PrivilegesTest, GivesARightBackUnused) {
    EXPECT_EQ(asUser(PolkitMachine::granted,
                     [] {
                         CollectingLog log;
                         SystemAuthorization authorization(log, installedHelper);
                         std::unique_ptr<AuthorizationReference> reference;
                         authorization.create(reference);
                         auto silent = reference->copyRights("system.privilege.admin", 0);
                         auto right = reference->copyRights("system.privilege.admin", 19);
                         reference->free(AuthorizationFlagDestroyRights);
                         auto start = reference->executeWithPrivileges(tool);
                         return std::to_string(silent) + " " + std::to_string(right) + " " +
                                std::to_string(start) + log.lines;
                     }),
              "-60007 0 -60005");
    EXPECT_EQ(runHelper(""), "0\nready\n");
}

TEST_F(PrivilegesTest, GivesTheToolACheckedEnvironment) {
    const std::string own = PolkitMachine::ownFolder;
    auto environment = [&] {
        ::close(::creat((own + "/X authority 'file'").c_str(), 0600));
        bindSocket(own + "/wayland-0");
        for (auto [name, value] : std::initializer_list<std::pair<const char*, std::string>>{
                 {"DISPLAY", ":7.0"},
                 {"XAUTHORITY", own + "/X authority 'file'"},
                 {"XDG_RUNTIME_DIR", own},
                 {"WAYLAND_DISPLAY", "wayland-0"},
                 {"XDG_SESSION_TYPE", "gramophone"},
                 {"XDG_CURRENT_DESKTOP", "$(id):ubuntu:GNOME"},
                 {"LD_PRELOAD", "/mnt/evil.so"},
                 {"PATH", "/mnt/evil"},
                 {"IFS", "/"},
                 {"ENV", "/mnt/evil"},
                 {"BASH_ENV", "/mnt/evil"},
                 {"SHELLOPTS", "xtrace"},
                 {"SHELL", "/mnt/evil"},
                 {"LC_ALL", "../../mnt/evil"},
                 {"GIO_USE_VFS", "evil"},
                 {"ZELVO_ROOT", "/mnt/evil"},
                 {"ZELVO_USER", "root"},
                 {"ZELVO_ASKING_PROCESS", "1"}})
            ::setenv(name, value.c_str(), 1);
        ::umask(0);
        return runTool();
    };
    pid_t process = 0;
    auto status =
        asUser(PolkitMachine::granted, environment, [&](pid_t asking) { process = asking; });
    EXPECT_EQ(status, "0 0\n");
    auto answer = machine->answer();
    auto expectLine = [&](const std::string& line) {
        auto at = answer.find(line + "\n");
        EXPECT_NE(at, answer.npos) << line << " is not in\n" << answer;
        if (at != answer.npos)
            answer.erase(at, line.size() + 1);
    };
    expectLine("tool="s + PolkitMachine::tools + "/" + tool +
               " 0 uid=0:0 groups=0 umask=0022 folder=/");
    expectLine("input=/dev/null");
    expectLine("DISPLAY=:7.0");
    expectLine("XAUTHORITY=" + own + "/X authority 'file'");
    expectLine("XDG_RUNTIME_DIR=" + own);
    expectLine("WAYLAND_DISPLAY=wayland-0");
    expectLine("XDG_CURRENT_DESKTOP=ubuntu:GNOME");
    expectLine("ZELVO_USER=zelvo-granted");
    expectLine("ZELVO_ASKING_PROCESS=" + std::to_string(process));
    expectLine("PKEXEC_UID=" + std::to_string(PolkitMachine::granted));
    expectLine("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");
    // The shell's own.
    expectLine("PWD=/");
    EXPECT_EQ(answer, "end\nzelvo\n\n6\n0\n0\n0\n0\na message\n");
}

TEST_F(PrivilegesTest, StartsNothingElse) {
    const std::string nul(1, '\0');
    const auto installed = PolkitMachine::tools + "/"s + tool;
    std::vector<std::pair<std::string, std::string>> attacks{
        {tool, "The request \"" + tool + "\" is not complete."},
        {tool + nul + "x", "The request \"" + tool + "\\x00x\" is not complete."},
        {tool + nul + nul, "\"\" is no variable."},
        {tool + nul + tool + nul, "\"" + tool + "\" is no variable."},
        {tool + std::string(4096, 'x') + nul, "The request is too long."},
        {std::string(std::size_t{1} << 20, '/'), "The request is too long."}};
    for (const auto& name : {""s, "/bin/sh"s, "-c"s, "screen-sharing.sh"s,
                             "DISCONNECT-screen-sharing.tool"s, installed, "../resources/" + tool,
                             " " + tool, tool + " ", tool + "; id", "'" + tool + "'"})
        attacks.emplace_back(name + nul, "\"" + name + "\" is none of the Screen Sharing tools.");
    for (const auto& [name, shown] : std::initializer_list<std::pair<std::string, std::string>>{
             {tool + "\n", tool + "\\x0a"},
             {"\"$(id)\"", "\\x22$(id)\\x22"},
             {"\x1b[2J\xff", "\\x1b[2J\\xff"},
             {std::string(4000, '.'), std::string(60, '.') + "..."}})
        attacks.emplace_back(name + nul, "\"" + shown + "\" is none of the Screen Sharing tools.");
    for (const auto& [input, message] : attacks)
        expectRefused(runHelper(input), message);
    // The name counts, and not where it is said to lie.
    EXPECT_EQ(asUser(PolkitMachine::granted, [&] { return runTool(installedHelper, "/x/evil"); }),
              "0 " + std::to_string(AuthorizationToolExecuteFailure) +
                  "\nzelvo: \"evil\" is none of the Screen Sharing tools.\n");

    for (const QStringList& arguments :
         {QStringList{tool.c_str()}, {""}, {"--help"}, {tool.c_str(), "-c"}})
        expectRefused(runHelper(tool + nul, arguments), "This program takes no arguments.");
    const auto direct = PolkitMachine::helper + " 2>&1 </dev/null | "s +
                        "grep -q 'is started by pkexec, for the user who asks'";
    for (const auto* start : {"PKEXEC_UID= ", "PKEXEC_UID=0 ", "PKEXEC_UID=61299 ",
                              "PKEXEC_UID=61201x ", "PKEXEC_UID=61201 setpriv --reuid 61201 "})
        shell(start + direct);
}

TEST_F(PrivilegesTest, RefusesVariables) {
    asUser(PolkitMachine::granted, [&] {
        shell("cd "s + PolkitMachine::ownFolder +
              " && ln -s /etc/shadow link && "
              "mkdir open && chmod 755 open && touch file public && chmod 666 public");
        return ""s;
    });
    bindSocket("/mnt/foreign");
    const struct {
        std::vector<std::string> variables;
        std::string reason;
    } attacks[] = {
        {{"LD_PRELOAD=/mnt/evil.so", "PATH=/mnt/evil", "IFS=/", "ENV=/mnt/evil", "SHELLOPTS=xtrace",
          "BASH_ENV=/mnt/evil", "ZELVO_ROOT=/mnt/own", "PKEXEC_UID=0", "DISPLA=:0", "=x"},
         " is no variable that the Screen Sharing tools take."},
        {{"DISPLAY=", "DISPLAY=-remote:0", "DISPLAY=:0;id", "DISPLAY=:0\nid", "DISPLAY=/mnt/own:0"},
         ", which is not the name of an X display."},
        {{"DISPLAY=:" + std::string(2000, '0')}, ", which is too long."},
        {{"XAUTHORITY=/etc/shadow", "XAUTHORITY=file", "XAUTHORITY=/mnt/own",
          "XAUTHORITY=/mnt/own/link", "XAUTHORITY=/mnt/own/public", "XAUTHORITY=/mnt/own/file\nx"},
         ", which is not a file of the user who asks."},
        {{"XDG_RUNTIME_DIR=/root", "XDG_RUNTIME_DIR=/mnt/own/open",
          "XDG_RUNTIME_DIR=/mnt/own/file"},
         ", which is not a private folder of the user who asks."},
        {{"WAYLAND_DISPLAY=wayland-9", "WAYLAND_DISPLAY=/mnt/foreign",
          "WAYLAND_DISPLAY=../foreign"},
         ", which is not a Wayland display of the user who asks."},
        {{"XDG_SESSION_TYPE=x11:id"}, ", which is not a type of session."},
        {{"XDG_CURRENT_DESKTOP=KDE:$(id)"}, ", which is not a list of known desktops."}};
    for (const auto& [variables, reason] : attacks) {
        for (const auto& variable : variables) {
            auto outcome = runHelper(tool + '\0' + variable + '\0');
            EXPECT_TRUE(outcome.starts_with("1\n") && outcome.ends_with(reason + "\n"))
                << variable << ": " << outcome;
        }
    }
    expectRefused(runHelper(tool + "\0DISPLAY=:0\0DISPLAY=:1\0"s), "DISPLAY is given twice.");
}

TEST_F(PrivilegesTest, TrustsOnlyWhatIsRootsAlone) {
    const std::string folder = PolkitMachine::tools;
    const std::string script = folder + "/" + tool;
    const struct {
        std::string change;
        std::string undo;
        std::string message;
    } attacks[] = {
        {"chmod 757 " + folder, "chmod 755 " + folder,
         folder + " can be changed by others than root."},
        {"chmod 775 /mnt/share", "chmod 755 /mnt/share",
         "/mnt/share can be changed by others than root."},
        {"chown 61201 /mnt/share/zelvo", "chown 0 /mnt/share/zelvo",
         "/mnt/share/zelvo does not belong to root."},
        {"mv /mnt/share /mnt/own/share && ln -s own/share /mnt/share",
         "rm /mnt/share && mv /mnt/own/share /mnt/share",
         "/mnt/share cannot be opened without following a link: Too many levels of symbolic "
         "links."},
        {"mv " + script + " /mnt/kept && ln -s /mnt/kept " + script, "mv /mnt/kept " + script,
         script + " cannot be opened without following a link: Too many levels of symbolic links."},
        {"mv " + script + " /mnt/kept", "mv /mnt/kept " + script,
         script + " cannot be opened without following a link: No such file or directory."},
        {"mv " + script + " /mnt/kept && mkdir " + script,
         "rmdir " + script + " && mv /mnt/kept " + script, script + " is not what it should be."},
        {"chown 61201 " + script, "chown 0 " + script, script + " does not belong to root."},
        {"chmod 646 " + folder + "/screen-sharing.sh", "chmod 644 " + folder + "/screen-sharing.sh",
         folder + "/screen-sharing.sh can be changed by others than root."},
    };
    for (const auto& attack : attacks) {
        SCOPED_TRACE(attack.change);
        shell(attack.change);
        expectRefused(runHelper(tool + '\0'), attack.message);
        shell(attack.undo);
    }
    EXPECT_EQ(runHelper(tool + '\0'), "0\nready\nstarted\n");
    EXPECT_TRUE(machine->answer().ends_with("a message\n"));
}
