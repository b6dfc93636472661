#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "server/screen/portal/PortalSession.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::server {
namespace {

using namespace std::chrono_literals;
using platform::FileDescriptor;
using Lines = std::vector<std::string>;

constexpr const char* session = "/org/freedesktop/portal/desktop/session/test";

/// Of the portal's interfaces; 0 for one that there is not.
struct Versions {
    std::uint32_t remoteDesktop = 0;
    std::uint32_t screenCast = 0;
    std::uint32_t clipboard = 0;
};

/// A desktop whose user answers all in the same way, with one pipe at a time.
class Portal {
  public:
    Portal(Versions versions, bool sharesClipboard, std::string token = {},
           std::uint32_t answer = 0)
        : versions_(versions),
          sharesClipboard_(sharesClipboard),
          token_(std::move(token)),
          answer_(answer) {
        sd_bus_open_user(&bus_);
        sd_bus_add_fallback(
            bus_, nullptr, PortalBus::path,
            [](auto* call, void* self, auto*) { return static_cast<Portal*>(self)->answer(call); },
            this);
        EXPECT_GE(sd_bus_request_name(bus_, PortalBus::service, 0), 0);
    }
    ~Portal() { sd_bus_flush_close_unref(bus_); }

    void turn() {
        while (sd_bus_process(bus_, nullptr) > 0)
            ;
    }
    template <typename... Values>
    void tell(const char* signal, const char* types, Values... values) {
        sd_bus_emit_signal(bus_, PortalBus::path, PortalClipboard::interface, signal, types,
                           values...);
    }
    std::string takeText() {
        std::array<char, 100> text;
        const auto size = ::read(pipe.get(), text.data(), text.size());
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

    Lines said;
    /// Where lasting leave was asked for, and what was given back of an earlier one.
    Lines asked;
    FileDescriptor pipe;
    const std::string text = "copied here é";

  private:
    int answer(sd_bus_message* call) {
        const std::string method = sd_bus_message_get_member(call);
        const std::string interface = sd_bus_message_get_interface(call);
        if (method == "GetAll")
            return describe(call);
        if (method == "SelectDevices" || method == "SelectSources")
            noteLeave(call, method);
        if (interface == PortalClipboard::interface)
            said.push_back(method);
        if (method == "SelectionRead" || method == "SelectionWrite" ||
            method == "OpenPipeWireRemote") {
            std::array<int, 2> ends{};
            EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
            FileDescriptor reading(ends[0]);
            FileDescriptor writing(ends[1]);
            const bool isRead = method == "SelectionRead";
            EXPECT_TRUE(!isRead || ::write(writing.get(), text.data(), text.size()) > 0);
            const int result =
                sd_bus_reply_method_return(call, "h", isRead ? reading.get() : writing.get());
            pipe = std::move(reading);
            return result;
        }
        if (method == "SelectionWriteDone") {
            std::uint32_t serial = 0;
            int isDone = 0;
            sd_bus_message_read(call, "oub", nullptr, &serial, &isDone);
            said.back() += " " + std::to_string(serial) + (isDone ? " done" : " failed");
        }
        if (interface == PortalClipboard::interface || method == "Close")
            return sd_bus_reply_method_return(call, "");
        std::string sender = sd_bus_message_get_sender(call) + 1;
        std::replace(sender.begin(), sender.end(), '.', '_');
        const auto request = std::string(PortalBus::path) + "/request/" + sender + "/zelvo" +
                             std::to_string(++requests_);
        sd_bus_reply_method_return(call, "o", request.c_str());
        return sd_bus_emit_signal(
            bus_, request.c_str(), "org.freedesktop.portal.Request", "Response", "ua{sv}",
            method == "Start" ? answer_ : 0U, 5, "session_handle", "s", session, "devices", "u", 3U,
            "clipboard_enabled", "b", sharesClipboard_, "streams", "a(ua{sv})", 1, 5U, 0,
            token_.empty() ? "none" : "restore_token", "s", token_.c_str());
    }
    int describe(sd_bus_message* call) {
        const char* interface = "";
        sd_bus_message_read(call, "s", &interface);
        const auto version =
            PortalClipboard::interface == std::string(interface) ? versions_.clipboard
            : std::string(interface).ends_with("RemoteDesktop")  ? versions_.remoteDesktop
                                                                 : versions_.screenCast;
        if (version == 0)
            return sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_INTERFACE, "none");
        return sd_bus_reply_method_return(call, "a{sv}", 3, "version", "u", version,
                                          "AvailableDeviceTypes", "u", 3U, "AvailableSourceTypes",
                                          "u", 1U);
    }
    void noteLeave(sd_bus_message* call, const std::string& method) {
        sd_bus_message_skip(call, "o");
        readDictionary(call, [&](const auto& key, const auto&) {
            const char* text = "";
            if (key == "persist_mode")
                asked.push_back(method);
            if (key != "restore_token" || sd_bus_message_read(call, "v", "s", &text) <= 0)
                return false;
            asked.emplace_back(text);
            return true;
        });
    }

    const Versions versions_;
    const int sharesClipboard_;
    const std::string token_;
    const std::uint32_t answer_;
    sd_bus* bus_ = nullptr;
    int requests_ = 0;
};

class PortalSessionTest : public testing::Test {
  protected:
    /// With a bus that starts no portal of its own.
    PortalSessionTest() {
        folder.write("bus.conf", "<busconfig><listen>unix:dir=" + folder.path() +
                                     R"(</listen><policy context="default"><allow user="*"/>
                                     <allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/></policy></busconfig>)");
        bus.emplace("exec dbus-daemon --nofork --print-address --config-file=" +
                    folder / "bus.conf");
        ::setenv("DBUS_SESSION_BUS_ADDRESS", bus->readLine().c_str(), 1);
    }

    bool waitFor(Portal& portal, const std::function<bool()>& condition) {
        for (const auto end = std::chrono::steady_clock::now() + 5s;
             !condition() && std::chrono::steady_clock::now() < end; portal.turn())
            loop.turn(std::chrono::steady_clock::now() + 2ms);
        return condition();
    }

    test::TemporaryFolder folder;
    std::optional<test::ChildProcess> bus;
    platform::EventLoop loop;
};

TEST_F(PortalSessionTest, CarriesTextBothWaysWhereThePortalSharesIt) {
    const struct {
        std::uint32_t version;
        bool shares;
        Lines said;
    } cases[] = {{1, false, {}}, {2, false, {"RequestClipboard"}}, {2, true, {"RequestClipboard"}}};
    for (const auto& [version, shares, said] : cases) {
        Portal portal({version, version, version}, shares);
        bool hasStarted = false;
        Lines heard;
        PortalSession desktop(loop, folder.path() + "/token",
                              {.started = [&] { hasStarted = true; }, .failed = [](auto) {}});
        auto& clipboard = desktop.clipboard();
        clipboard.setListener([&](const auto& text) { heard.push_back(text); });
        auto says = [&](const Lines& lines) {
            return waitFor(portal, [&] { return portal.said.size() >= lines.size(); }) &&
                   std::exchange(portal.said, {}) == lines;
        };
        auto tellOwner = [&](const char* type, bool isOurs) {
            portal.tell("SelectionOwnerChanged", "oa{sv}", session, 2, "mime_types", "(as)", 2,
                        "text/html", type, "session_is_owner", "b", isOurs);
        };
        desktop.start();
        ASSERT_TRUE(waitFor(portal, [&] { return hasStarted; }));
        EXPECT_TRUE(says(said));
        ASSERT_EQ(clipboard.isThere(), shares);
        clipboard.set(std::string(TextPipes::longestText + 1, 'x'));
        clipboard.set("from the helper ß");
        if (!shares)
            continue;
        // Nobody watches yet.
        tellOwner("text/plain", false);
        portal.tell("SelectionTransfer", "osu", session, "text/plain;charset=utf-8", 7U);
        EXPECT_TRUE(says({"SetSelection", "SelectionWrite", "SelectionWriteDone 7 done"}));
        EXPECT_EQ(portal.takeText(), "from the helper ß");
        clipboard.setWatched(true);
        tellOwner("text/plain", true);
        tellOwner("image/png", false);
        tellOwner("text/plain", false);
        EXPECT_TRUE(says({"SelectionRead"}));
        EXPECT_TRUE(waitFor(portal, [&] { return heard == Lines{portal.text}; }));
    }
}

TEST_F(PortalSessionTest, KeepsLeaveAndGivesItBack) {
    const struct {
        Versions versions;
        std::string handedOut;
        std::uint32_t answer;
        Lines asked;
        std::string kept;
    } starts[] = {
        {{1, 4, 0}, "", 0, {}, ""},
        {{2, 4, 0}, "first", 0, {"SelectDevices"}, "first"},
        {{2, 4, 0}, "second", 0, {"SelectDevices", "first"}, "second"},
        // The user, asked since the token was of no use any more, says no.
        {{2, 4, 0}, "", 1, {"SelectDevices", "second"}, ""},
        {{2, 4, 0}, "third", 0, {"SelectDevices"}, "third"},
        {{1, 4, 0}, "", 0, {}, "third"},
        {{0, 4, 0}, "fourth", 0, {"SelectSources", "third"}, "fourth"},
        {{0, 3, 0}, "", 0, {}, "fourth"},
    };
    const auto file = folder.path() + "/state/zelvo/token";
    for (const auto& [versions, handedOut, answer, asked, kept] : starts) {
        Portal portal(versions, false, handedOut, answer);
        std::optional<bool> hasStarted;
        PortalSession desktop(loop, file,
                              {.started = [&] { hasStarted = true; },
                               .failed =
                                   [&](auto failure) {
                                       hasStarted = false;
                                       EXPECT_EQ(failure, PortalSession::Failure::Refused);
                                   }});
        desktop.start();
        ASSERT_TRUE(waitFor(portal, [&] { return hasStarted.has_value(); }));
        EXPECT_EQ(*hasStarted, answer == 0);
        EXPECT_EQ(portal.asked, asked);
        EXPECT_EQ(desktop.offersInput(), versions.remoteDesktop > 0);
        EXPECT_EQ(RestoreToken(file).read(), kept);
        struct stat status {};
        EXPECT_TRUE(kept.empty() ||
                    (::stat(file.c_str(), &status) == 0 && (status.st_mode & 0777) == 0600));
    }
}

}  // namespace
}  // namespace zelvo::server
