#include "platform/linux/desktop/DesktopInputSources.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QCoreApplication>
#include <chrono>
#include <filesystem>

#include "platform/linux/InstalledBundle.h"
#include "platform/linux/base/ProgramOutput.h"
#include "platform/linux/desktop/GnomeSettings.h"
#include "platform/linux/desktop/KeyCombinations.h"
#include "platform/linux/machine/OsReleaseProcessInfo.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "snapshot/HotCorners.h"
#include "snapshot/SymbolicHotKeys.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/TemporaryFolder.h"

using namespace zelvo;
using namespace zelvo::platform;
using zelvo::test::TemporaryFolder;
using namespace std::chrono_literals;

namespace {

constexpr int shift = 0xFFE1, control = 0xFFE3, option = 0xFFE7, command = 0xFFE9;

class DesktopInputSourcesTest : public testing::Test {
  protected:
    /// As an application under that desktop has it just before it describes the host.
    std::optional<std::string> ask(const std::string& desktop, const std::string& display = "") {
        DesktopInputSources sources({.desktop = desktop,
                                     .display = display,
                                     .configHome = folder / "config",
                                     .sessionBus = "unix:path=" + folder / "none",
                                     .systemBus = "unix:path=" + folder / "none",
                                     .keyboardFile = folder / "keyboard"},
                                    bundle, reader, log);
        return sources.currentKeyboardInputSourceId();
    }
    /// On every system that has a file of default hot keys.
    SymbolicHotKeys hotKeys() {
        std::optional<SymbolicHotKeys> result;
        for (const auto* version : {"12", "13", "22.04", "24.04", "41"}) {
            folder.write("etc/os-release", std::string("VERSION_ID=") + version + "\n");
            auto found = readSymbolicHotKeys(reader, bundle, system, std::nullopt);
            EXPECT_EQ(result.value_or(found), found) << version;
            result = found;
        }
        return *result;
    }
    std::string corners() {
        std::string text;
        for (const auto& [name, corner] : readHotCorners(reader, bundle))
            text += name.substr(6, 2) + "=" + std::to_string(corner.value.int32Reading()) +
                    std::string(corner.modifiers.size(), '+') + " ";
        return text;
    }
    static bool gsettings(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "gsettings");
        return programOutput(arguments, 5s).has_value();
    }

    int argumentCount = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{argumentCount, arguments};
    TemporaryFolder folder;
    PlistReader reader{folder.path()};
    OsReleaseProcessInfo system{folder.path()};
    zelvo::test::RecordingLog log;
    InstalledBundle bundle{
        {.executableFolder = ZELVO_SOURCES, .languages = {}, .dataHome = folder / "data"}, reader};
    const std::string preferences = "data/zelvo/Library/Preferences/";
};

}  // namespace

TEST_F(DesktopInputSourcesTest, TellsWhatKdeHas) {
    folder.write("config/kxkbrc",
                 "[Layout]\nDisplayNames=,\nLayoutList=de,us\nUse=true\nVariantList=nodeadkeys,\n");
    folder.write("config/kglobalshortcutsrc", R"([kwin]
_k_friendly_name=KWin
Expose=Ctrl+F9,Ctrl+F9,Toggle Present Windows (Current desktop)
ExposeClass=Ctrl+F7,Ctrl+F7,Toggle Present Windows (Window class)
Overview=Meta+W,Meta+W,Toggle Overview
Switch One Desktop to the Left=Meta+Ctrl+Shift+Left,Meta+Ctrl+Left,Switch One Desktop to the Left
Switch One Desktop to the Right=none,Meta+Ctrl+Right,Switch One Desktop to the Right

[org.kde.krunner.desktop]
_k_friendly_name=KRunner
_launch=Search\tAlt+Space\tAlt+F2,Alt+Space\tAlt+F2\tSearch,KRunner
)");
    folder.write("config/kwinrc", R"([Effect-overview]
BorderActivate=7

[Effect-windowview]
BorderActivateAll=9
BorderActivateClass=3,5

[ElectricBorders]
Bottom=None
TopRight=LockScreen
)");
    EXPECT_EQ(ask("KDE"), "de+nodeadkeys");
    EXPECT_EQ(hotKeys(), (SymbolicHotKeys{{"32", {command, 13}},
                                          {"33", {control, 98}},
                                          {"64", {option, 32}},
                                          {"79", {shift, control, command, 123}}}));
    EXPECT_EQ(corners(), "bl=3 br=3 tl=2 tr=13 ");

    // Cut anywhere the files are no error; without them nothing stays that is no longer so.
    auto shortcuts = folder.read("config/kglobalshortcutsrc");
    for (std::size_t length = 0; length < shortcuts.size(); length += 7) {
        folder.write("config/kglobalshortcutsrc", shortcuts.substr(0, length));
        EXPECT_TRUE(ask("KDE"));
    }
    std::filesystem::remove_all(folder / "config");
    folder.write("keyboard", "XKBLAYOUT=\"fr\"\nXKBVARIANT=\"bepo\"\n");
    EXPECT_EQ(ask("KDE"), "fr+bepo");
    EXPECT_TRUE(std::filesystem::is_empty(folder / preferences));
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(DesktopInputSourcesTest, TellsWhatGnomeHas) {
    ::setenv("GSETTINGS_BACKEND", "keyfile", 1);
    ::setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
    if (!gsettings({"get", "org.gnome.shell.keybindings", "toggle-overview"}) ||
        !gsettings({"get", "org.gnome.desktop.input-sources", "sources"}))
        GTEST_SKIP() << "needs gsettings and GNOME's schemas";
    auto keys = "org.gnome.desktop.wm.keybindings";
    ASSERT_TRUE(gsettings({"set", "org.gnome.desktop.input-sources", "sources",
                           "[('xkb', 'us'), ('xkb', 'de+nodeadkeys')]"}));
    ASSERT_TRUE(gsettings({"set", "org.gnome.desktop.input-sources", "mru-sources",
                           "[('xkb', 'fr'), ('xkb', 'de+nodeadkeys'), ('xkb', 'us')]"}));
    ASSERT_TRUE(gsettings({"set", "org.gnome.shell.keybindings", "toggle-overview",
                           "['<Hyper>x', '<Shift><Super>space']"}));
    ASSERT_TRUE(gsettings({"set", keys, "switch-to-workspace-left", "['<Control><Alt>Left']"}));
    ASSERT_TRUE(gsettings({"set", keys, "switch-to-workspace-right", "@as []"}));
    EXPECT_EQ(ask("ubuntu:GNOME"), "de+nodeadkeys");
    EXPECT_EQ(hotKeys(),
              (SymbolicHotKeys{{"32", {shift, command, 32}}, {"79", {control, option, 123}}}));
    EXPECT_EQ(corners(), "tl=2 ");

    ASSERT_TRUE(gsettings({"set", "org.gnome.desktop.interface", "enable-hot-corners", "false"}));
    ask("GNOME");
    EXPECT_EQ(corners(), "");
    EXPECT_EQ(hotKeys().size(), 2U);
    std::string path = ::getenv("PATH");
    ::setenv("PATH", (folder / "none").c_str(), 1);
    ask("GNOME");
    ::setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(hotKeys().size(), 2U) << "a desktop that cannot be read has still its settings";
    ::unsetenv("GSETTINGS_BACKEND");
    ::unsetenv("XDG_CONFIG_HOME");
}

TEST_F(DesktopInputSourcesTest, LeavesAnUnknownDesktopAlone) {
    EXPECT_EQ(ask("XFCE"), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folder / "data"));
    // A file of another desktop's session goes, one of the user's own stays.
    folder.write("config/kwinrc", "[ElectricBorders]\nTopLeft=ShowDesktop\n");
    ask("KDE");
    auto own = folder.write(preferences + "com.apple.symbolichotkeys.plist", "<plist/>");
    EXPECT_EQ(corners(), "tl=4 ");
    ask("XFCE");
    EXPECT_EQ(corners(), "");
    EXPECT_TRUE(std::filesystem::exists(own));
}

TEST_F(DesktopInputSourcesTest, LeavesOutWhatHasNoEquivalent) {
    KeyCombinations keys(
        *reader.dictionaryWithContentsOfFile(bundle.resourcePath() + "/KeycodeToKeysym.plist"));
    EXPECT_EQ(keys.fromGtk("<Primary><Mod4>Page_Up"), (HotKey{116, 0x140000}));
    EXPECT_EQ(keys.fromGtk("<super>S"), (HotKey{1, 0x100000}));
    EXPECT_EQ(keys.fromQt("Meta+PgDown"), (HotKey{121, 0x100000}));
    EXPECT_EQ(keys.fromQt("Alt+`"), (HotKey{50, 0x80000}));
    for (const auto* text : {"", "Super_L", "<Super>", "<Super", "<Meta>x", "<Super>Above_Tab",
                             "<Super>a", "<Super>u"})
        EXPECT_FALSE(keys.fromGtk(text)) << text;
    for (const auto* text : {"none", "Meta++", "Meta+", "+", "Search", "Num+5", "Ctrl+X, Ctrl+S"})
        EXPECT_FALSE(keys.fromQt(text)) << text;

    auto half = gnomeSettingsOf(
        "org.gnome.desktop.input-sources sources [('ibus', 'libpinyin'), ('xkb', 'u", keys);
    EXPECT_EQ(half.inputSource, std::nullopt);
}

TEST_F(DesktopInputSourcesTest, AsksTheXServer) {
    auto server =
        "exec Xvfb -displayfd 1 -noreset -nolisten tcp >" + folder / "display" + " 2>/dev/null";
    if (std::system("which Xvfb setxkbmap >/dev/null") != 0)
        GTEST_SKIP() << "needs Xvfb and setxkbmap";
    zelvo::test::ChildProcess xvfb(server);
    ASSERT_EQ(std::system(("for i in $(seq 100); do [ -s " + folder / "display" +
                           " ] && break; sleep 0.1; done; setxkbmap -display :$(cat " +
                           folder / "display" + ") de,us nodeadkeys,")
                              .c_str()),
              0);
    auto display = ":" + folder.read("display").substr(0, folder.read("display").find('\n'));
    EXPECT_EQ(ask("XFCE", display), "de+nodeadkeys");
    EXPECT_EQ(ask("XFCE", ":99999"), std::nullopt);
}

TEST(ProgramOutput, EndsWhatTakesTooLong) {
    EXPECT_EQ(programOutput({"echo", "yes"}, 5s), "yes\n");
    EXPECT_EQ(programOutput({"false"}, 5s), std::nullopt);
    EXPECT_EQ(programOutput({"no-such-program"}, 5s), std::nullopt);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(programOutput({"sleep", "60"}, 50ms), std::nullopt);
    EXPECT_EQ(programOutput({"sh", "-c", "exec >&-; exec sleep 60"}, 50ms), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}
