#include "server/screen/portal/PortalSession.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace zelvo::server {

namespace {

constexpr const char* remoteDesktop = "org.freedesktop.portal.RemoteDesktop";
constexpr const char* screenCast = "org.freedesktop.portal.ScreenCast";
constexpr const char* sessionInterface = "org.freedesktop.portal.Session";

constexpr std::uint32_t keyboardAndPointer = 1 | 2;
constexpr std::uint32_t monitorSources = 1;
constexpr std::uint32_t cursorEmbedded = 2;
constexpr std::uint32_t cursorAsMetadata = 4;
constexpr std::uint32_t untilRevoked = 2;
/// From these versions on leave can be kept.
constexpr std::uint32_t remoteDesktopKeeps = 2;
constexpr std::uint32_t screenCastKeeps = 4;
/// From this version on sessions share the clipboard, where there is a portal for it.
constexpr std::uint32_t remoteDesktopSharesClipboard = 2;

/// Waits for a portal that does not answer; what comes then is lost.
constexpr std::size_t mostInput = 1000;

const auto nothing = [](sd_bus_message*) {};

void readNumbers(sd_bus_message* reply,
                 const std::vector<std::pair<std::string, std::uint32_t*>>& numbers) {
    readDictionary(reply, [&](const auto& key, const auto& signature) {
        for (const auto& [name, number] : numbers) {
            if (key == name && signature == "u")
                return sd_bus_message_read(reply, "v", "u", number) > 0;
        }
        return false;
    });
}

void openProperties(sd_bus_message* call, const char* interface) {
    sd_bus_message_append(call, "s", interface);
}

}  // namespace

PortalSession::PortalSession(platform::EventLoop& loop, std::string tokenFile, Handlers handlers)
    : token_(std::move(tokenFile)),
      handlers_(std::move(handlers)),
      bus_(loop, [this] { fail(Failure::Broken); }),
      clipboard_(loop, bus_) {}

PortalSession::~PortalSession() {
    if (!session_.empty())
        bus_.tell(session_.c_str(), sessionInterface, "Close", nothing);
    if (!requestPath_.empty())
        bus_.tell(requestPath_.c_str(), "org.freedesktop.portal.Request", "Close", nothing);
}

void PortalSession::start() {
    if (!bus_)
        return fail(Failure::Missing);
    bus_.subscribe("org.freedesktop.portal.Request", "Response",
                   [this](auto* signal) { answered(signal); });
    bus_.subscribe(sessionInterface, "Closed", [this](auto* signal) {
        if (session_ == sd_bus_message_get_path(signal))
            fail(Failure::Closed);
    });
    bus_.whenServiceEnds([this] { fail(Failure::Broken); });
    findPortal();
}

void PortalSession::findPortal() {
    constexpr const char* properties = "org.freedesktop.DBus.Properties";
    bus_.call(
        PortalBus::path, properties, "GetAll",
        [](auto* call) { openProperties(call, remoteDesktop); },
        [this](auto* reply) {
            if (reply)
                readNumbers(
                    reply, {{"version", &remoteDesktop_}, {"AvailableDeviceTypes", &deviceTypes_}});
        });
    bus_.call(
        PortalBus::path, properties, "GetAll",
        [](auto* call) { openProperties(call, PortalClipboard::interface); },
        [this](auto* reply) {
            if (reply)
                readNumbers(reply, {{"version", &clipboards_}});
        });
    bus_.call(
        PortalBus::path, properties, "GetAll", [](auto* call) { openProperties(call, screenCast); },
        [this](auto* reply) {
            if (reply)
                readNumbers(reply, {{"version", &screenCast_},
                                    {"AvailableSourceTypes", &sourceTypes_},
                                    {"AvailableCursorModes", &cursorModes_}});
            // Portals answer in order.
            if (screenCast_ == 0 || !(sourceTypes_ & monitorSources))
                return fail(Failure::Missing);
            if (!(deviceTypes_ & keyboardAndPointer))
                remoteDesktop_ = 0;
            create();
        });
}

void PortalSession::create() {
    request(
        remoteDesktop_ ? remoteDesktop : screenCast, "CreateSession", nothing,
        [](auto* call) { addEntry(call, "session_handle_token", std::string("zelvo")); },
        [this](auto* results) {
            readDictionary(results, [&](const auto& key, const auto& signature) {
                const char* handle = nullptr;
                if (key != "session_handle" || (signature != "s" && signature != "o"))
                    return false;
                if (sd_bus_message_read(results, "v", signature.c_str(), &handle) <= 0)
                    return false;
                session_ = handle;
                return true;
            });
            if (session_.empty())
                return fail(Failure::Broken);
            if (remoteDesktop_)
                selectDevices();
            else
                selectSources();
        });
}

void PortalSession::selectDevices() {
    request(
        remoteDesktop, "SelectDevices",
        [this](auto* call) { sd_bus_message_append(call, "o", session_.c_str()); },
        [this](auto* call) {
            addEntry(call, "types", deviceTypes_ & keyboardAndPointer);
            if (remoteDesktop_ < remoteDesktopKeeps)
                return;
            addEntry(call, "persist_mode", untilRevoked);
            if (const auto token = token_.read(); !token.empty())
                addEntry(call, "restore_token", token);
        },
        [this](auto*) { selectSources(); });
}

void PortalSession::selectSources() {
    request(
        screenCast, "SelectSources",
        [this](auto* call) { sd_bus_message_append(call, "o", session_.c_str()); },
        [this](auto* call) {
            addEntry(call, "types", monitorSources);
            addEntry(call, "multiple", true);
            addEntry(call, "cursor_mode",
                     cursorModes_ & cursorAsMetadata ? cursorAsMetadata : cursorEmbedded);
            // In a session that takes input it is the devices with which leave is kept.
            if (remoteDesktop_ || screenCast_ < screenCastKeeps)
                return;
            addEntry(call, "persist_mode", untilRevoked);
            if (const auto token = token_.read(); !token.empty())
                addEntry(call, "restore_token", token);
        },
        [this](auto*) { requestClipboard(); });
}

void PortalSession::requestClipboard() {
    if (remoteDesktop_ < remoteDesktopSharesClipboard || !clipboards_)
        return askUser();
    bus_.call(
        PortalBus::path, PortalClipboard::interface, "RequestClipboard",
        [this](auto* call) { sd_bus_message_append(call, "oa{sv}", session_.c_str(), 0); },
        // What comes of it is told with the user's answer.
        [this](auto*) { askUser(); });
}

void PortalSession::askUser() {
    asksUser_ = true;
    request(
        remoteDesktop_ ? remoteDesktop : screenCast, "Start",
        [this](auto* call) { sd_bus_message_append(call, "os", session_.c_str(), ""); }, nothing,
        [this](auto* results) { readStart(results); });
}

void PortalSession::readStart(sd_bus_message* results) {
    asksUser_ = false;
    std::optional<std::string> next;
    readDictionary(results, [&](const auto& key, const auto& signature) {
        if (key == "devices" && signature == "u") {
            std::uint32_t devices = 0;
            sd_bus_message_read(results, "v", "u", &devices);
            takesInput_ = (devices & keyboardAndPointer) == keyboardAndPointer;
            return true;
        }
        if (key == "clipboard_enabled" && signature == "b") {
            int isEnabled = 0;
            sd_bus_message_read(results, "v", "b", &isEnabled);
            if (isEnabled)
                clipboard_.begin(session_);
            return true;
        }
        if (key == "restore_token" && signature == "s") {
            const char* token = nullptr;
            if (sd_bus_message_read(results, "v", "s", &token) > 0)
                next = token;
            return true;
        }
        if (key == "streams" && signature == "a(ua{sv})") {
            readMonitors(results);
            return true;
        }
        return false;
    });
    // Who wants to allow input after all is to be asked again.
    if (next && takesInput_)
        token_.keep(*next);
    else if (next)
        token_.drop();
    if (monitors_.empty())
        return fail(Failure::Broken);
    openPipeWire();
}

void PortalSession::readMonitors(sd_bus_message* results) {
    sd_bus_message_enter_container(results, 'v', "a(ua{sv})");
    sd_bus_message_enter_container(results, 'a', "(ua{sv})");
    while (sd_bus_message_enter_container(results, 'r', "ua{sv}") > 0) {
        PortalMonitor monitor;
        sd_bus_message_read(results, "u", &monitor.node);
        readDictionary(results, [&](const auto& key, const auto& signature) {
            if (signature != "(ii)")
                return false;
            if (key == "position")
                return sd_bus_message_read(results, "v", "(ii)", &monitor.position.x,
                                           &monitor.position.y) > 0;
            if (key == "size")
                return sd_bus_message_read(results, "v", "(ii)", &monitor.size.width,
                                           &monitor.size.height) > 0;
            return false;
        });
        sd_bus_message_exit_container(results);
        monitors_.push_back(monitor);
    }
    sd_bus_message_exit_container(results);
    sd_bus_message_exit_container(results);
}

void PortalSession::openPipeWire() {
    bus_.call(
        PortalBus::path, screenCast, "OpenPipeWireRemote",
        [this](auto* call) { sd_bus_message_append(call, "oa{sv}", session_.c_str(), 0); },
        [this](auto* reply) {
            int descriptor = -1;
            if (!reply || sd_bus_message_read(reply, "h", &descriptor) <= 0)
                return fail(Failure::Broken);
            // The message closes its own.
            pipeWire_.reset(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
            handlers_.started();
        });
}

void PortalSession::request(const char* interface, const char* method, const Options& arguments,
                            const Options& options, Results done) {
    const auto token = "zelvo" + std::to_string(++requests_);
    requestPath_ = std::string(PortalBus::path) + "/request/" + bus_.senderInPaths() + "/" + token;
    requestDone_ = std::move(done);
    bus_.call(
        PortalBus::path, interface, method,
        [&](auto* call) {
            arguments(call);
            openDictionary(call);
            addEntry(call, "handle_token", token);
            options(call);
            closeDictionary(call);
        },
        [this](auto* reply) {
            if (!reply)
                fail(Failure::Broken);
        });
}

void PortalSession::answered(sd_bus_message* signal) {
    if (isOver_ || requestPath_ != sd_bus_message_get_path(signal))
        return;
    requestPath_.clear();
    std::uint32_t response = 0;
    if (sd_bus_message_read(signal, "u", &response) <= 0)
        return fail(Failure::Broken);
    // 1 is the user's no; all others are failures. Who was asked although there was leave has none
    // that is good any more.
    if (response == 1)
        token_.drop();
    if (response != 0)
        return fail(response == 1 ? Failure::Refused : Failure::Broken);
    std::exchange(requestDone_, {})(signal);
}

void PortalSession::fail(Failure failure) {
    if (std::exchange(isOver_, true))
        return;
    asksUser_ = false;
    handlers_.failed(failure);
}

/// The portal takes calls side by side and would let a key overtake another: each waits for the
/// reply to the one before.
void PortalSession::notify(const char* method, Options arguments) {
    if (!takesInput_ || isOver_ || input_.size() >= mostInput)
        return;
    input_.push_back({method, std::move(arguments)});
    if (input_.size() == 1)
        sendInput();
}

void PortalSession::sendInput() {
    bus_.call(
        PortalBus::path, remoteDesktop, input_.front().method,
        [this](auto* call) {
            sd_bus_message_append(call, "oa{sv}", session_.c_str(), 0);
            input_.front().arguments(call);
        },
        [this](auto*) {
            input_.pop_front();
            if (!input_.empty())
                sendInput();
        });
}

void PortalSession::movePointer(std::uint32_t node, double x, double y) {
    static constexpr const char* method = "NotifyPointerMotionAbsolute";
    Options arguments = [=](auto* call) { sd_bus_message_append(call, "udd", node, x, y); };
    // Where it was to go before does not matter any more. The first may be on its way.
    if (input_.size() > 1 && input_.back().method == method)
        input_.back().arguments = std::move(arguments);
    else
        notify(method, std::move(arguments));
}

void PortalSession::movePointerBy(double x, double y) {
    notify("NotifyPointerMotion", [=](auto* call) { sd_bus_message_append(call, "dd", x, y); });
}

void PortalSession::pressButton(int button, bool isDown) {
    notify("NotifyPointerButton",
           [=](auto* call) { sd_bus_message_append(call, "iu", button, isDown ? 1U : 0U); });
}

void PortalSession::turnWheel(Axis axis, int steps) {
    notify("NotifyPointerAxisDiscrete", [=](auto* call) {
        sd_bus_message_append(call, "ui", static_cast<std::uint32_t>(axis), steps);
    });
}

void PortalSession::pressKey(std::uint32_t keysym, bool isDown) {
    notify("NotifyKeyboardKeysym", [=](auto* call) {
        sd_bus_message_append(call, "iu", static_cast<std::int32_t>(keysym), isDown ? 1U : 0U);
    });
}

}  // namespace zelvo::server
