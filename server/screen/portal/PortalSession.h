#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "server/screen/Screen.h"
#include "server/screen/portal/PortalBus.h"
#include "server/screen/portal/PortalClipboard.h"
#include "server/screen/portal/RestoreToken.h"

namespace zelvo::server {

/// A monitor that the portal shows.
struct PortalMonitor {
    /// In PipeWire, and to the portal.
    std::uint32_t node = 0;
    /// In the desktop's own measure, which is pixels only where nothing is scaled. A size of
    /// nothing where the portal does not say.
    Point position;
    Size size;
};

/// The portal's leave to show the screen and, where the user gives that, too, to use it.
class PortalSession {
  public:
    enum class Failure {
        /// There is no portal, or none that can show the screen.
        Missing,
        /// The user said no.
        Refused,
        /// The desktop has closed the session.
        Closed,
        /// It went wrong in some other way.
        Broken,
    };
    struct Handlers {
        /// The monitors and the connection to PipeWire are there.
        std::function<void()> started;
        /// Once, and also where the desktop ends what was started.
        std::function<void(Failure)> failed;
    };

    /// Leave that lasts is kept in the file. Nothing is asked before `start`.
    PortalSession(platform::EventLoop& loop, std::string tokenFile, Handlers handlers);
    PortalSession(const PortalSession&) = delete;
    PortalSession& operator=(const PortalSession&) = delete;
    /// Ends the session; a dialog that asks for it goes.
    ~PortalSession();

    void start();
    /// Whether the user is being asked, as far as one can know.
    bool asksUser() const { return asksUser_; }

    const std::vector<PortalMonitor>& monitors() const { return monitors_; }
    bool takesInput() const { return takesInput_; }
    /// Else the portal has no part for it, and the user was not asked.
    bool offersInput() const { return remoteDesktop_ != 0; }
    PortalClipboard& clipboard() { return clipboard_; }
    const PortalClipboard& clipboard() const { return clipboard_; }
    /// Once.
    platform::FileDescriptor takePipeWire() { return std::move(pipeWire_); }

    /// As the portal measures the monitor.
    void movePointer(std::uint32_t node, double x, double y);
    /// From where it is, in the desktop's own measure.
    void movePointerBy(double x, double y);
    /// The kernel's number of the button.
    void pressButton(int button, bool isDown);
    enum class Axis : std::uint32_t { Vertical = 0, Horizontal = 1 };
    void turnWheel(Axis axis, int steps);
    void pressKey(std::uint32_t keysym, bool isDown);

  private:
    using Options = std::function<void(sd_bus_message*)>;
    using Results = std::function<void(sd_bus_message* results)>;

    void findPortal();
    void create();
    void selectDevices();
    void selectSources();
    void requestClipboard();
    void askUser();
    void readStart(sd_bus_message* results);
    void readMonitors(sd_bus_message* results);
    void openPipeWire();
    /// One of the portal's requests, which answer by a signal. The arguments come before the
    /// options.
    void request(const char* interface, const char* method, const Options& arguments,
                 const Options& options, Results done);
    void answered(sd_bus_message* signal);
    void notify(const char* method, Options arguments);
    void sendInput();
    void fail(Failure failure);

    const RestoreToken token_;
    const Handlers handlers_;
    PortalBus bus_;
    PortalClipboard clipboard_;
    /// Versions of the interfaces; 0 for one that there is not.
    std::uint32_t remoteDesktop_ = 0;
    std::uint32_t screenCast_ = 0;
    std::uint32_t clipboards_ = 0;
    std::uint32_t cursorModes_ = 0;
    std::uint32_t deviceTypes_ = 0;
    std::uint32_t sourceTypes_ = 0;
    std::string session_;
    std::string requestPath_;
    Results requestDone_;
    int requests_ = 0;
    bool asksUser_ = false;
    bool isOver_ = false;
    std::vector<PortalMonitor> monitors_;
    bool takesInput_ = false;
    platform::FileDescriptor pipeWire_;
    struct Input {
        const char* method;
        Options arguments;
    };
    /// The first of them has been sent.
    std::deque<Input> input_;
};

}  // namespace zelvo::server
