#include "platform/linux/desktop/DesktopSettingsMirror.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/bundle/InstalledBundle.h"
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

/// The system's locale service and KDE's keyboard service, on a thread of their own.
class KeyboardServices : public QDBusVirtualObject {
  public:
    explicit KeyboardServices(const std::string& address)
        : bus_(QDBusConnection::connectToBus(QString::fromStdString(address), "keyboards")) {
        bus_.registerVirtualObject("/", this, QDBusConnection::SubPath);
        moveToThread(&thread_);
        thread_.start();
        for (const auto* service : {"org.freedesktop.locale1", "org.kde.keyboard"})
            EXPECT_TRUE(bus_.registerService(service));
    }
    ~KeyboardServices() override {
        QDBusConnection::disconnectFromBus(bus_.name());
        thread_.quit();
        thread_.wait();
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        auto isLocale = message.member() == "GetAll";
        return bus_.send(
            isLocale ? message.createReply(QVariantMap{{"X11Layout", "cz"}, {"X11Model", "pc105"}})
                     : message.createReply(layout_.load()));
    }
    void use(unsigned layout) {
        layout_ = layout;
        bus_.send(QDBusMessage::createSignal("/Layouts", "org.kde.KeyboardLayouts",
                                             "currentLayoutChanged"));
    }

  private:
    QDBusConnection bus_;
    std::atomic<unsigned> layout_ = 1;
    QThread thread_;
};

class DesktopSettingsMirrorTest : public testing::Test {
  protected:
    /// As an application under that desktop has it just before it describes the host.
    std::optional<std::string> ask(const std::string& desktop, const std::string& display = "",
                                   std::chrono::milliseconds patience = 60s) {
        mirror.reset();
        mirror = std::make_unique<DesktopSettingsMirror>(
            DesktopSettingsMirror::Options{.desktop = desktop,
                                           .display = display,
                                           .configHome = folder / "config",
                                           .sessionBus = "unix:path=" + folder / "bus",
                                           .systemBus = "unix:path=" + folder / "bus",
                                           .keyboardFile = folder / "keyboard",
                                           .programFolder = programFolder,
                                           .patience = patience},
            bundle, reader, log);
        return mirror->currentKeyboardInputSourceId();
    }
    /// Of Shift, Control, Option and Command as a number of bits, and the key's name.
    std::string written(const std::optional<HotKey>& hotKey) {
        for (const auto& [name, entry] : table)
            if (hotKey && entry.find("keycode")->int32Reading() == hotKey->keyCode)
                return std::to_string(hotKey->flags >> 17) + name;
        return hotKey ? std::to_string(hotKey->keyCode) : "";
    }
    /// On every system that has a file of default hot keys, and the same on each.
    std::string hotKeys() {
        std::optional<std::string> result;
        for (const auto* version : {"12", "13", "22.04", "24.04", "41"}) {
            folder.write("etc/os-release", std::string("VERSION_ID=") + version + "\n");
            std::string text;
            for (auto& [number, keys] : readSymbolicHotKeys(reader, bundle, system, std::nullopt)) {
                // The space is told by its character.
                HotKey hotKey{keys.back() == 32 ? 49 : keys.back(), 0};
                for (const auto& modifier : modifierKeyTable)
                    if (std::count(keys.begin(), keys.end(), modifier.value) > 0)
                        hotKey.flags |= modifier.plistValue;
                text += number + "=" + written(hotKey) + " ";
            }
            EXPECT_EQ(result.value_or(text), text) << version;
            result = text;
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
    static bool comes(const std::function<bool()>& condition) {
        for (int tries = 2000; tries > 0 && !condition(); --tries)
            std::this_thread::sleep_for(10ms);
        return condition();
    }

    int argumentCount = 0;
    char* arguments[1] = {nullptr};
    QCoreApplication application{argumentCount, arguments};
    std::string programFolder = ZELVO_BUILD;
    TemporaryFolder folder;
    PlistReader reader{folder.path()};
    OsReleaseProcessInfo system{folder.path()};
    zelvo::test::RecordingLog log;
    InstalledBundle bundle{
        {.executableFolder = ZELVO_SOURCES, .languages = {}, .dataHome = folder / "data"}, reader};
    const PropertyList::Dictionary table =
        *reader.dictionaryWithContentsOfFile(bundle.resourcePath() + "/KeycodeToKeysym.plist");
    const std::string preferences = "data/zelvo/Library/Preferences/";
    std::unique_ptr<DesktopSettingsMirror> mirror;
};

}  // namespace

TEST_F(DesktopSettingsMirrorTest, TellsWhatKdeHas) {
    folder.write("config/kxkbrc", "[Layout]\nLayoutList=de,us\nUse=true\nVariantList=nodeadkeys\n");
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
    folder.write("config/kwinrc",
                 "[Effect-overview]\nBorderActivate=7\n[Effect-windowview]\nBorderActivateAll=9\n"
                 "BorderActivateClass=3,5\n[ElectricBorders]\nBottom=None\nTopRight=LockScreen\n");
    EXPECT_EQ(ask("KDE"), "de+nodeadkeys");
    EXPECT_EQ(hotKeys(), "32=8w 33=2F7 64=4space 79=11Left 81=0NoSymbol ");
    EXPECT_EQ(corners(), "bl=3 br=3 tl=2 tr=13 ");

    // Cut anywhere the files are no error; what changes later comes by itself.
    auto shortcuts = folder.read("config/kglobalshortcutsrc");
    auto hotKeyFile = preferences + "com.apple.symbolichotkeys.plist";
    auto expected = folder.read(hotKeyFile);
    for (auto length = shortcuts.size(); length > 31; length -= 31) {
        folder.write("config/kglobalshortcutsrc", shortcuts.substr(0, length));
        EXPECT_TRUE(ask("KDE"));
    }
    folder.write("config/kglobalshortcutsrc", shortcuts);
    EXPECT_TRUE(comes([&] { return folder.read(hotKeyFile) == expected; }));
    folder.write("config/kxkbrc", "[Layout]\nLayoutList=fr\nUse=true\n");
    EXPECT_TRUE(comes([&] { return mirror->currentKeyboardInputSourceId() == "fr"; }));
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(DesktopSettingsMirrorTest, TellsWhatGnomeHas) {
    if (!std::filesystem::exists("/usr/share/glib-2.0/schemas/org.gnome.shell.gschema.xml"))
        GTEST_SKIP() << "needs GNOME's schemas";
    ::setenv("GSETTINGS_BACKEND", "keyfile", 1);
    ::setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
    const std::string settings = "config/glib-2.0/settings/keyfile";
    folder.write(settings, R"([org/gnome/desktop/input-sources]
sources=[('xkb', 'us'), ('xkb', 'de+nodeadkeys')]
mru-sources=[('xkb', 'fr'), ('xkb', 'de+nodeadkeys'), ('xkb', 'us')]
[org/gnome/shell/keybindings]
toggle-overview=['<Hyper>x', '<Shift><Super>space']
[org/gnome/desktop/wm/keybindings]
switch-to-workspace-left=['<Control><Alt>Left']
switch-to-workspace-right=@as []
)");
    EXPECT_EQ(ask("ubuntu:GNOME"), "de+nodeadkeys");
    EXPECT_EQ(hotKeys(), "32=9space 33=8asciicircum 64=0NoSymbol 79=6Left 81=0NoSymbol ");
    EXPECT_EQ(corners(), "tl=2 ");

    folder.write(settings,
                 "[org/gnome/desktop/input-sources]\nsources=[('xkb', 'us')]\n"
                 "[org/gnome/desktop/interface]\nenable-hot-corners=false\n");
    EXPECT_TRUE(comes([&] { return mirror->currentKeyboardInputSourceId() == "us"; }));
    EXPECT_EQ(hotKeys(), "32=8s 33=8grave 64=0NoSymbol 79=8Page_Up 81=8Page_Down ");
    EXPECT_EQ(corners(), "");
    ::unsetenv("GSETTINGS_BACKEND");
    ::unsetenv("XDG_CONFIG_HOME");
}

TEST_F(DesktopSettingsMirrorTest, LeavesFilesAloneThatItHasNotWritten) {
    folder.write("keyboard",
                 "# XKBLAYOUT=fr\nXKBLAYOUT='de,us' # two\nXKBVARIANT=\"nodeadkeys,\"\n");
    EXPECT_EQ(ask("XFCE"), "de+nodeadkeys");
    EXPECT_EQ(hotKeys(), "32=0NoSymbol 33=0NoSymbol 64=0NoSymbol 79=0NoSymbol 81=0NoSymbol ");
    folder.write("config/kwinrc", "[ElectricBorders]\nTopLeft=ShowDesktop\n");
    ask("KDE");
    EXPECT_EQ(corners(), "tl=4 ");
    ask("XFCE");
    EXPECT_EQ(corners(), "") << "of another desktop's session";

    folder.write(preferences + "com.apple.symbolichotkeys.plist", "<plist/>");
    auto link = folder / preferences + "com.apple.dock.plist";
    std::filesystem::create_symlink(folder / "nowhere", link);
    for (const auto* desktop : {"KDE", "XFCE"}) {
        ask(desktop);
        EXPECT_EQ(folder.read(preferences + "com.apple.symbolichotkeys.plist"), "<plist/>");
        EXPECT_TRUE(std::filesystem::is_symlink(link));
        EXPECT_FALSE(std::filesystem::exists(link));
    }
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(DesktopSettingsMirrorTest, AsksTheServicesOfTheBuses) {
    zelvo::test::ChildProcess daemon(
        "exec dbus-daemon --session --nofork --nopidfile --print-address --address=unix:path=" +
        folder / "bus");
    ASSERT_NE(daemon.readLine(), "");
    KeyboardServices services("unix:path=" + folder / "bus");
    folder.write("config/kxkbrc", "[Layout]\nLayoutList=de,us,fr\nUse=true\n");
    EXPECT_EQ(ask("KDE"), "us");
    services.use(2);
    EXPECT_TRUE(comes([&] { return mirror->currentKeyboardInputSourceId() == "fr"; }));
    EXPECT_EQ(ask("XFCE"), "cz");
    EXPECT_TRUE(log.lines.empty());

    // Without its module a desktop is not known.
    programFolder = folder / "elsewhere";
    EXPECT_EQ(ask("GNOME"), "cz");
    EXPECT_EQ(hotKeys(), "32=0NoSymbol 33=0NoSymbol 64=0NoSymbol 79=0NoSymbol 81=0NoSymbol ");
    EXPECT_EQ(log.lines.size(), 1U);
}

TEST_F(DesktopSettingsMirrorTest, EndsAndAnswersWhileABusIsSilent) {
    FileDescriptor bus(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un place{.sun_family = AF_UNIX, .sun_path = {}};
    (folder / "bus").copy(place.sun_path, sizeof place.sun_path - 1);
    ASSERT_EQ(::bind(bus.get(), reinterpret_cast<sockaddr*>(&place), sizeof place), 0);
    ASSERT_EQ(::listen(bus.get(), 8), 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ask("XFCE", "", 100ms), std::nullopt);
    mirror.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST_F(DesktopSettingsMirrorTest, FollowsTheXServer) {
    // Servers of one number, in whatever networks, take each other's keymaps.
    auto display = ":" + std::to_string(20000 + ::getpid() % 30000);
    auto server = "exec Xvfb " + display + " -displayfd 1 -noreset -nolisten tcp >" +
                  folder / "display" + " 2>/dev/null";
    if (std::system("which Xvfb setxkbmap >/dev/null") != 0)
        GTEST_SKIP() << "needs Xvfb and setxkbmap";
    zelvo::test::ChildProcess xvfb(server);
    ASSERT_TRUE(comes([&] { return !folder.read("display").empty(); }));
    auto set = "setxkbmap -display " + display;
    ASSERT_EQ(std::system((set + " de,us nodeadkeys,").c_str()), 0);
    EXPECT_EQ(ask("XFCE", display), "de+nodeadkeys");
    ASSERT_EQ(std::system((set + " fr").c_str()), 0);
    EXPECT_TRUE(comes([&] { return mirror->currentKeyboardInputSourceId() == "fr"; }));
    EXPECT_EQ(ask("XFCE", ":99999"), std::nullopt);
}

TEST_F(DesktopSettingsMirrorTest, KnowsTheDesktopsNamesOfKeys) {
    KeyCombinations keys(table, "us");
    std::string gtk, qt, aboveTab;
    for (const auto* text : {"<Primary><Mod4>Page_Up", "<super>S", "<Super>a", "<Super>KP_Enter",
                             "<Shift>ISO_Left_Tab", "", "Super_L", "<Super>", "<Super", "<Meta>x"})
        gtk += written(keys.fromGtk(text)) + " ";
    EXPECT_EQ(gtk, "10Page_Up 8s 8U0061 8KP_Enter 1Tab      ");
    for (const auto* text : {"Meta+PgDown", "Alt+`", "Meta+U", "Meta+Num+8", "Ctrl+Num++", "Meta++",
                             "Meta+Enter", "Meta+Return", "Alt+Shift+Backtab", "Volume Mute",
                             "none", "Meta+", "Num+Left", "Ctrl+X, Ctrl+S"})
        qt += written(keys.fromQt(text)) + " ";
    EXPECT_EQ(qt,
              "8Page_Down 4grave 8U0075 8KP_8 2KP_Add 8plus 8KP_Enter 8Return 5Tab "
              "0XF86AudioMute     ");
    for (const auto* layout : {"", "de", "de+nodeadkeys", "fr", "ru", "no-such-layout"})
        aboveTab += written(KeyCombinations(table, layout).fromGtk("<Super>Above_Tab")) + " ";
    EXPECT_EQ(aboveTab, "8grave 8dead_circumflex 8asciicircum 8twosuperior 8Cyrillic_io  ");
}
