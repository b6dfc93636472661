#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/privileges/SystemAuthorization.h"
#include "tests/linux/privileges/PolkitAgent.h"
#include "tests/linux/privileges/PolkitMachine.h"
#include "tests/support/RecordingLog.h"

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::string_literals;

namespace {

const std::string enableTool = PolkitMachine::names[0];
const SystemAuthorization::Options installed{.helpers = PolkitMachine::helpers};

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

/// The statuses of the right to start a tool and, if it was granted, of a start, and what was
/// logged.
std::string runTool(SystemAuthorization::Options options = installed,
                    const std::string& tool = enableTool, const std::string& started = "") {
    const auto path = "/elsewhere/" + (started.empty() ? tool : started);
    RecordingLog log;
    SystemAuthorization authorization(log, std::move(options));
    std::unique_ptr<AuthorizationReference> reference;
    if (authorization.create(tool, reference) != AuthorizationSuccess)
        return "no reference";
    auto right = reference->copyRights("system.privilege.admin", 19);
    auto result = std::to_string(right);
    if (right == 0) {
        result.append(" ").append(std::to_string(reference->executeWithPrivileges(path)));
        if (reference->executeWithPrivileges(path) != AuthorizationDenied)
            result += " and once more";
    }
    reference->free(AuthorizationFlagDestroyRights);
    result += "\n";
    for (const auto& line : log.lines)
        result += line + "\n";
    return result;
}

void shell(const std::string& command) {
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

/// What the helper, started as by pkexec, tells: output, errors and exit status.
std::string runHelper(const std::string& input, const std::string& before = "PKEXEC_UID=65534",
                      const std::string& arguments = "") {
    std::ofstream("/mnt/input") << input;
    shell(before + " " + PolkitMachine::helpers + "/zelvo-screen-sharing-helper " + arguments +
          " </mnt/input >/mnt/output 2>&1; echo $? >>/mnt/output");
    std::ifstream output("/mnt/output");
    return {std::istreambuf_iterator<char>(output), {}};
}

}  // namespace

TEST_F(PrivilegesTest, AsksOnceAndStartsTheToolInACheckedEnvironment) {
    const std::string authority = "/mnt/asked/X authority 'file'";
    shell("install -d -m 700 -o nobody /mnt/asked && install -m 600 -o nobody /dev/null \"" +
          authority + '"');
    auto work = [&] {
        for (auto [name, value] : std::initializer_list<std::pair<const char*, std::string>>{
                 {"DISPLAY", ":7.0"},
                 {"XAUTHORITY", authority},
                 {"XDG_RUNTIME_DIR", "/mnt/asked"},
                 {"XDG_SESSION_TYPE", "gramophone"},
                 {"XDG_CURRENT_DESKTOP", "$(id):ubuntu:GNOME"},
                 {"LD_PRELOAD", "/mnt/evil.so"},
                 {"PATH", "/mnt/evil"},
                 {"ENV", "/mnt/evil"},
                 {"LC_ALL", "../../mnt/evil"},
                 {"ZELVO_ROOT", "/mnt/evil"},
                 {"ZELVO_USER", "root"}})
            ::setenv(name, value.c_str(), 1);
        ::umask(0);
        return runTool() + runTool() + runTool(installed, enableTool, "evil");
    };
    std::optional<PolkitAgent> agent;
    auto status = asUser(PolkitMachine::asked, work, [&](pid_t asking) {
        agent.emplace(asking, PolkitMachine::asked, true, "de_DE.UTF-8");
    });
    EXPECT_EQ(status, "0 0\n0 0\n0 " + std::to_string(AuthorizationToolExecuteFailure) +
                          "\nzelvo: \"evil\" is none of the Screen Sharing tools.\n");
    // No right is kept: each call has a question of its own, and no more than one.
    auto question =
        "app.zelvo.Zelvo.screen-sharing: Zelvo braucht die Erlaubnis eines Administrators, um die "
        "Bildschirmfreigabe einzuschalten.\n"s;
    EXPECT_EQ(agent->questions, question + question + question);

    std::vector<std::string> expected{
        "tool="s + PolkitMachine::tools + "/" + enableTool +
            " 0 uid=0:0 groups=0 umask=0022 folder=/ input=/dev/null",
        "DISPLAY=:7.0", "XAUTHORITY=" + authority, "XDG_RUNTIME_DIR=/mnt/asked",
        "XDG_CURRENT_DESKTOP=ubuntu:GNOME", "ZELVO_USER=nobody",
        "PKEXEC_UID=" + std::to_string(PolkitMachine::asked),
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
        // The shell's own.
        "PWD=/",
        // What the journal is told before the tool's message.
        "zelvo", "", "6", "0", "0", "0", "0"};
    std::sort(expected.begin(), expected.end());
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(machine->answer(), expected);
}

TEST_F(PrivilegesTest, EndingAsksNobodyInFrontOfTheComputer) {
    auto work = [] {
        std::string result;
        for (const auto* tool : PolkitMachine::names)
            result += runTool(installed, tool).substr(0, 3);
        // The right to end is none to begin.
        return result + runTool(installed, PolkitMachine::names[2], enableTool);
    };
    const std::string granted = "0 0", refused = "-60";
    for (bool isExampleInstalled : {false, true}) {
        const std::filesystem::path example = "/etc/polkit-1/rules.d/50-example.rules";
        if (isExampleInstalled) {
            machine->stopBus();
            std::filesystem::copy_file(ZELVO_EXAMPLE_RULES, example);
            machine->startBus();
        }
        for (const std::string session : {"", "inactive", "active"}) {
            bool isActive = session == "active";
            bool enables = isActive && isExampleInstalled;
            auto result = asUser(PolkitMachine::asked, work, [&](pid_t process) {
                if (!session.empty())
                    machine->enterSession(process, PolkitMachine::asked, isActive);
            });
            const auto& end = isActive ? granted : refused;
            ASSERT_EQ(result.substr(0, 9), (enables ? granted : refused) + end + end) << session;
            EXPECT_EQ(result.ends_with("0 -60031\nzelvo: This program only ends Screen Sharing.\n"),
                      isActive);
            for (int i = 0; i < enables + 2 * isActive; ++i)
                EXPECT_FALSE(machine->answer().empty());
        }
        std::filesystem::remove(example);
    }
}

TEST_F(PrivilegesTest, TellsFailuresApart) {
    std::optional<PolkitAgent> agent;
    EXPECT_EQ(asUser(
                  PolkitMachine::asked, [] { return runTool(); },
                  [&](pid_t process) {
                      agent.emplace(process, PolkitMachine::asked, false, "en_GB.UTF-8");
                  }),
              std::to_string(AuthorizationCanceled) +
                  "\nError executing command as another user: Request dismissed\n");
    EXPECT_NE(agent->questions, "");

    auto expect = [](uid_t user, const SystemAuthorization::Options& options, std::int32_t status) {
        auto result = asUser(user, [&] { return runTool(options); });
        EXPECT_TRUE(result.starts_with(std::to_string(status) + "\n")) << result;
        EXPECT_GE(std::count(result.begin(), result.end(), '\n'), 2) << "a reason: " << result;
    };
    expect(PolkitMachine::refused, installed, AuthorizationDenied);
    expect(PolkitMachine::asked, {.pkexec = "/mnt/nowhere"}, AuthorizationInternal);
    machine->stopBus();
    expect(PolkitMachine::asked, installed, AuthorizationInternal);
    machine->startBus();
}

TEST_F(PrivilegesTest, TheHelperStartsNothingElse) {
    const auto nul = std::string(1, '\0');
    const auto request = enableTool + nul;
    EXPECT_EQ(runHelper(""), "ready\n0\n") << "the right is given back";
    EXPECT_EQ(runHelper(std::string(std::size_t{1} << 20, '/')),
              "ready\nzelvo: The request is too long.\n1\n");
    EXPECT_EQ(runHelper(request, "PKEXEC_UID=65534", enableTool),
              "zelvo: This program takes no arguments.\n1\n");
    // It looks with the user's eyes: their own file, in a folder that is not for them.
    shell("install -d -m 700 /mnt/hidden && install -m 600 -o nobody /dev/null /mnt/hidden/file");
    EXPECT_EQ(
        runHelper(request + "XAUTHORITY=/mnt/hidden/file" + nul),
        "ready\nzelvo: XAUTHORITY is \"/mnt/hidden/file\", which is not a file of the user who "
        "asks.\n1\n");
    for (const auto* start :
         {"", "PKEXEC_UID=", "PKEXEC_UID=0", "PKEXEC_UID=61299", "PKEXEC_UID=-1",
          "PKEXEC_UID=65534x", "PKEXEC_UID=65534 setpriv --reuid 65534"})
        EXPECT_EQ(runHelper(request, start),
                  "zelvo: This program is started by pkexec, for the user who asks.\n1\n");
}

TEST_F(PrivilegesTest, TrustsOnlyWhatIsRootsAlone) {
    const std::string noLink =
        " cannot be opened without following a link: Too many levels of symbolic links.";
    const std::pair<std::string, std::string> attacks[] = {
        {"chmod 775 .", " can be changed by others than root."},
        {"mv resources other; ln -s other resources", "/resources" + noLink},
        {"cd resources; mv $tool ..; ln -s ../$tool", "/resources/$tool" + noLink},
        {"cd resources; rm $tool; mkdir $tool", "/resources/$tool is not what it should be."},
        {"chown nobody resources/$tool", "/resources/$tool does not belong to root."},
        {"chmod 646 resources/screen-sharing.sh",
         "/resources/screen-sharing.sh can be changed by others than root."}};
    for (auto [change, complaint] : attacks) {
        shell("cp -a /mnt/share /mnt/kept; cd /mnt/share/zelvo; tool=" + enableTool + "; " +
              change);
        if (auto place = complaint.find("$tool"); place != complaint.npos)
            complaint.replace(place, 5, enableTool);
        EXPECT_EQ(runHelper(enableTool + '\0'),
                  "ready\nzelvo: /mnt/share/zelvo" + complaint + "\n1\n");
        shell("rm -r /mnt/share; mv /mnt/kept /mnt/share");
    }
}
