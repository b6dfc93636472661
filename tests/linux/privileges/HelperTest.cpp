#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/privileges/helper/ScreenSharingRequest.h"
#include "platform/linux/privileges/helper/SessionVariables.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo::platform;
using namespace std::string_literals;
using zelvo::test::TemporaryFolder;

TEST(ScreenSharingRequest, NamesOneOfTheToolsAndNothingElse) {
    const auto nul = "\0"s, tool = "disconnect-screen-sharing.tool"s;
    std::vector<std::pair<std::string, std::string>> attacks{
        {tool + nul + "x", "The request \"" + tool + "\\x00x\" is not complete."},
        {tool + nul + nul, "\"\" is no variable."}};
    for (const auto& [name, shown] : std::vector<std::pair<std::string, std::string>>{
             {"", ""},
             {"../resources/" + tool, "../resources/" + tool},
             {tool + "; id", tool + "; id"},
             {"\"\x1b[2J\xff", "\\x22\\x1b[2J\\xff"},
             {std::string(4000, '.'), std::string(60, '.') + "..."}})
        attacks.emplace_back(name + nul, "\"" + shown + "\" is none of the Screen Sharing tools.");
    for (const auto& [bytes, complaint] : attacks)
        EXPECT_EQ(ScreenSharingRequest::parse(bytes).complaint, complaint);
}

TEST(SessionVariables, AreTheUsersOwn) {
    TemporaryFolder own;
    own.write("X authority 'file'", "");
    for (auto [name, mode] : {std::pair{"public", 0666}, {"open/file", 0600}})
        ::chmod(own.write(name, "").c_str(), static_cast<mode_t>(mode));
    ::chmod((own / "open").c_str(), 0755);
    std::filesystem::create_symlink(own / "open/file", own / "link");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (own / "wayland-0").copy(address.sun_path, sizeof address.sun_path - 1);
    FileDescriptor display(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(::bind(display.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    using Assignments = std::vector<std::pair<std::string, std::string>>;
    const Assignments good{{"DISPLAY", ":7.0"},
                           {"XAUTHORITY", own / "X authority 'file'"},
                           {"XDG_RUNTIME_DIR", own.path()},
                           {"WAYLAND_DISPLAY", "wayland-0"},
                           {"XDG_SESSION_TYPE", "x11"},
                           {"XDG_CURRENT_DESKTOP", "ubuntu:GNOME"}};
    SessionVariables variables(::getuid());
    for (const auto& [name, value] : good)
        EXPECT_EQ(variables.add(name, value), std::nullopt);
    EXPECT_EQ(variables.assignments().size(), good.size());
    EXPECT_EQ(variables.add("DISPLAY", ":8"), "DISPLAY is given twice.");

    SessionVariables foreign(::getuid() + 1);
    for (const auto& [name, value] :
         Assignments{good[1], good[2], {"WAYLAND_DISPLAY", own / "wayland-0"}})
        EXPECT_NE(foreign.add(name, value), std::nullopt) << name;

    const struct {
        const char* reason;
        Assignments variables;
    } attacks[] = {
        {" is no variable that the Screen Sharing tools take.",
         {{"LD_PRELOAD", "/x.so"}, {"PATH", "/x"}, {"ENV", "/x"}, {"ZELVO_ROOT", "/x"}, {"", "x"}}},
        {", which is not the name of an X display.",
         {{"DISPLAY", ""}, {"DISPLAY", "-remote:0"}, {"DISPLAY", ":0;id"}, {"DISPLAY", "/x:0"}}},
        {", which is too long.", {{"DISPLAY", ":" + std::string(2000, '0')}}},
        {", which is not a file of the user who asks.",
         {{"XAUTHORITY", "public"},
          {"XAUTHORITY", own.path()},
          {"XAUTHORITY", own / "link"},
          {"XAUTHORITY", own / "public"},
          {"XAUTHORITY", own / "open/file\nx"}}},
        {", which is not a private folder of the user who asks.",
         {{"XDG_RUNTIME_DIR", own / "open"}, {"XDG_RUNTIME_DIR", own / "public"}}},
        {", which is not a Wayland display of the user who asks.",
         {{"WAYLAND_DISPLAY", "wayland-0"}, {"WAYLAND_DISPLAY", own / "public"}}},
        {", which is not a type of session.", {{"XDG_SESSION_TYPE", "x11:id"}}},
        {", which is not a list of known desktops.", {{"XDG_CURRENT_DESKTOP", "KDE:$(id)"}}}};
    for (const auto& [reason, assignments] : attacks) {
        for (const auto& [name, value] : assignments) {
            // Of its own, since no variable may come twice; the display has no folder to lie in.
            auto complaint = SessionVariables(::getuid()).add(name, value);
            EXPECT_TRUE(complaint && complaint->ends_with(reason)) << name << "=" << value;
        }
    }
    SessionVariables relative(::getuid());
    EXPECT_EQ(relative.add("XDG_RUNTIME_DIR", own.path()), std::nullopt);
    EXPECT_NE(relative.add("WAYLAND_DISPLAY", "../wayland-0"), std::nullopt);
}
