#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/SystemLog.h"
#include "platform/linux/base/Users.h"
#include "platform/linux/privileges/DetachedProcess.h"
#include "platform/linux/privileges/SystemAuthorization.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using zelvo::test::TemporaryFolder;

namespace {

class AuthorizationTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(::mkfifo((folder / "answer").c_str(), 0600), 0); }
    void TearDown() override {
        ::unsetenv("SUDO_UID");
        ::unsetenv("ZELVO_USER");
    }

    std::int32_t run(SystemAuthorization::Options options, const std::string& tool) {
        SystemAuthorization authorization(log, std::move(options));
        std::unique_ptr<AuthorizationReference> reference;
        EXPECT_EQ(authorization.create(tool, reference), AuthorizationSuccess);
        EXPECT_EQ(reference->executeWithPrivileges(tool), AuthorizationDenied) << "no right yet";
        if (auto status = reference->copyRights("system.privilege.admin", 19))
            return status;
        auto status = reference->executeWithPrivileges(tool);
        reference->free(AuthorizationFlagDestroyRights);
        EXPECT_EQ(reference->executeWithPrivileges(tool), AuthorizationDenied) << "none is kept";
        return status;
    }
    /// A tool in a folder with an awkward name that writes what `words` expand to.
    std::string tool(const std::string& words) {
        return folder.write("a 'b' \"c\" $d\n\u00e9/the tool.tool",
                            "echo \"" + words + "\" > '" + folder / "answer" + "'\n");
    }
    /// What the tool wrote; waits for it.
    std::string answer() { return folder.read("answer"); }

    TemporaryFolder folder;
    SystemLog log;
};

}  // namespace

TEST_F(AuthorizationTest, StartsAToolOrTellsThatItCannot) {
    auto path = tool("$0|$(id -u)|$(readlink /proc/self/fd/0)|$#");
    std::string started;
    EXPECT_EQ(run({.asSelf = true, .started = [&](auto name) { started = name; }}, path),
              AuthorizationSuccess);
    EXPECT_EQ(answer(), path + "|" + std::to_string(::getuid()) + "|/dev/null|0\n");
    EXPECT_EQ(started, "the tool.tool");
    for (const auto& missing : {folder / "missing.tool", std::string("relative.tool")})
        EXPECT_EQ(run({.asSelf = true}, missing), AuthorizationToolExecuteFailure);
    EXPECT_EQ(run({.asSelf = true, .shell = "/nowhere/sh"}, path), AuthorizationToolExecuteFailure);
}

TEST_F(AuthorizationTest, TellsRootsToolsWhoAsked) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root starts tools for others";
    auto nobody = nameOfUser(65534);
    ASSERT_TRUE(nobody);
    ::setenv("SUDO_UID", "65534", 1);
    ::setenv("ZELVO_USER", "somebody", 1);
    auto path = tool("$ZELVO_USER");
    EXPECT_EQ(run({}, path), AuthorizationSuccess);
    EXPECT_EQ(answer(), *nobody + "\n");
    for (const auto* noUser : {"", "0", "65534x", "-1"}) {
        ::setenv("SUDO_UID", noUser, 1);
        EXPECT_EQ(run({}, path), AuthorizationSuccess);
        EXPECT_EQ(answer(), "somebody\n");
    }
}

TEST_F(AuthorizationTest, LeavesNothingOfItsOwnBehind) {
    FileDescriptor leaking(::open("/dev/zero", O_RDONLY));
    // Its parent, its session and its open files, of which the answer is one.
    auto path = folder.write("tool.sh", "exec > '" + folder / "answer" +
                                            "'\nread -r stat < /proc/self/stat\nset -- $stat\n"
                                            "echo \"$4 $6\"\nls -l /proc/self/fd | grep -c zero\n");
    EXPECT_EQ(startDetached({"/bin/sh", path}, {"PATH=/usr/bin:/bin"}), 0);
    int ppid = 0;
    int session = 0;
    int zeros = -1;
    std::istringstream(answer()) >> ppid >> session >> zeros;
    EXPECT_NE(ppid, ::getpid());
    EXPECT_NE(session, ::getsid(0));
    EXPECT_EQ(zeros, 0);
    EXPECT_EQ(startDetached({"/nowhere/sh"}, {}), ENOENT);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD) << "no child, living or dead";
}
