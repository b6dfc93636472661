#include "platform/linux/screen_sharing/ScreenSharingSettings.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "platform/linux/screen_sharing/ScreenSharingExplanation.h"
#include "tests/support/FakeHost.h"
#include "tests/support/ManualLoop.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using namespace zelvo::test;

namespace {

std::string startOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    std::istringstream values(text.substr(text.rfind(')') + 1));
    std::string value;
    for (int number = 3; number <= 22; ++number)
        values >> value;
    return value;
}

/// A process that does nothing. It has the sockets that were open when it was made.
class Child {
  public:
    Child() : pid(::fork()) {
        if (pid == 0) {
            ::pause();
            ::_exit(0);
        }
    }
    ~Child() { end(); }
    void end() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        pid = -1;
    }
    pid_t pid;
};

class ScreenSharingSettingsTest : public testing::Test {
  protected:
    /// Listens at a port that the kernel picks and lets that be the port of Screen Sharing.
    FileDescriptor listener(in_addr_t address) {
        FileDescriptor file(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(address);
        socklen_t size = sizeof name;
        EXPECT_EQ(::bind(file.get(), reinterpret_cast<sockaddr*>(&name), size), 0);
        EXPECT_EQ(::listen(file.get(), 1), 0);
        ::getsockname(file.get(), reinterpret_cast<sockaddr*>(&name), &size);
        services.ports["vnc-server"] = ntohs(name.sin_port);
        return file;
    }

    void write(const std::string& more, const std::string& setting = "<true/>") {
        folder.write("Library/Preferences/com.apple.RemoteManagement.plist",
                     "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>ScreenSharingReqPerm"
                     "Enabled</key>" +
                         setting + more + "</dict></plist>");
    }
    static std::string number(const std::string& key, const std::string& value) {
        return "<key>ScreenSharingServer" + key + "</key><integer>" + value + "</integer>";
    }
    void writeServer(pid_t pid) {
        write(number("Pid", std::to_string(pid)) + number("Start", startOf(pid)));
    }

    bool isBelieved() {
        auto found = settings.dictionaryWithContentsOfFile(ScreenSharingSettings::path);
        return found && found->contains("ScreenSharingReqPermEnabled");
    }

    TemporaryFolder folder;
    PlistReader files{folder.path()};
    FakeServicesDatabase services;
    ScreenSharingSettings settings{files, services, {}};
};

class ScreenSharingExplanationTest : public testing::Test {
  protected:
    std::string said() {
        explanation->update();
        loop.settle();
        return explanation->text().value();
    }
    void makeExplanation(std::chrono::seconds patience = std::chrono::seconds(60)) {
        explanation =
            std::make_unique<ScreenSharingExplanation>(loop, bundle, folder / "reason", patience);
        subscription = explanation->text().subscribe([this](const auto&) { ++writes; });
    }

    TemporaryFolder folder;
    ManualLoop loop;
    FakeBundle bundle;
    int writes = 0;
    std::unique_ptr<ScreenSharingExplanation> explanation;
    Subscription subscription;
};

}  // namespace

TEST_F(ScreenSharingSettingsTest, CountsOnlyWhileTheServerItNamesListens) {
    auto self = std::to_string(::getpid());
    EXPECT_FALSE(isBelieved()) << "no file";
    Child stranger;
    auto socket = listener(INADDR_ANY);
    writeServer(::getpid());
    EXPECT_TRUE(isBelieved());
    write(number("Pid", self));
    EXPECT_TRUE(isBelieved()) << "without a start any process of that number is meant";
    write(number("Pid", self) + number("Start", "1"));
    EXPECT_FALSE(isBelieved()) << "a later process got the number";
    write("");
    EXPECT_FALSE(isBelieved()) << "names nobody";
    for (const char* pid : {"0", "-1", "4294967297", "2147483647"}) {
        write(number("Pid", pid));
        EXPECT_FALSE(isBelieved()) << pid;
    }

    writeServer(stranger.pid);
    EXPECT_FALSE(isBelieved()) << "another process listens in its place";
    Child server;
    socket.reset();
    writeServer(server.pid);
    EXPECT_TRUE(isBelieved()) << "the socket is the child's alone now";
    writeServer(::getpid());
    EXPECT_FALSE(isBelieved());
    writeServer(server.pid);
    server.end();
    EXPECT_FALSE(isBelieved()) << "the server has ended";

    socket = listener(INADDR_LOOPBACK);
    writeServer(::getpid());
    EXPECT_FALSE(isBelieved()) << "nobody from outside reaches it";
}

TEST_F(ScreenSharingSettingsTest, LeavesEverythingElseAsItIs) {
    write("", "<false/>");
    EXPECT_TRUE(isBelieved()) << "off needs no proof";
    folder.write("Library/other.plist", "{ScreenSharingReqPermEnabled = 1;}");
    auto other = settings.dictionaryWithContentsOfFile("/Library/other.plist");
    EXPECT_TRUE(other && other->contains("ScreenSharingReqPermEnabled"));
    EXPECT_TRUE(settings.fileExists("/Library/other.plist"));
}

TEST_F(ScreenSharingExplanationTest, SaysEachNewReasonOnce) {
    bundle.strings["There is no screen to share here. Start Zelvo in a desktop session."] = "Blind";
    folder.write("reason", "no-display\n");
    makeExplanation();
    EXPECT_EQ(said(), "") << "an earlier run's";
    std::filesystem::remove(folder / "reason");
    EXPECT_EQ(said(), "");
    folder.write("reason", "no-display\n");
    EXPECT_EQ(said(), "Blind");
    auto before = writes;
    EXPECT_EQ(said(), "Blind");
    EXPECT_EQ(writes, before);
    folder.write("next", "something new\n");
    std::filesystem::rename(folder / "next", folder / "reason");
    EXPECT_NE(said().find("did not start"), std::string::npos);
    std::filesystem::remove(folder / "reason");
    EXPECT_EQ(said(), "");

    folder.write("reason", "no-display\n");
    explanation->update();
    explanation.reset();
    loop.settle();
}

TEST_F(ScreenSharingExplanationTest, FollowsTheToolAndTheServer) {
    makeExplanation();
    const auto& works = explanation->toolWorks();
    auto says = [this](const char* words) { return said().find(words) != std::string::npos; };
    explanation->toolStarted();
    EXPECT_EQ(said(), "");
    EXPECT_TRUE(works.value());
    folder.write("reason", "");
    EXPECT_TRUE(says("cannot be written")) << "a full disk leaves no room for a word";
    EXPECT_FALSE(works.value());
    explanation->toolStarted();
    EXPECT_EQ(said(), "") << "it is tried again";
    explanation->serverListens();
    EXPECT_FALSE(works.value());
    explanation->serverEnded();
    EXPECT_TRUE(says("has ended"));
    explanation->serverListens();
    EXPECT_EQ(said(), "") << "it was started anew";

    makeExplanation(std::chrono::seconds(0));
    explanation->toolStarted();
    EXPECT_TRUE(says("did not start")) << "the tool left nothing behind";
    EXPECT_FALSE(explanation->toolWorks().value());
}
