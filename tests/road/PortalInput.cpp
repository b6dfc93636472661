// Uses the desktop through its portal as each line of the input says, whether or not that shows a
// picture:
//   KEYSYM        presses and releases the key
//   X Y BUTTON    presses and releases the kernel's button there
// It says before that what the portal has granted.

#include <poll.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

#include "server/screen/portal/PortalSession.h"

using zelvo::server::PortalSession;

namespace {

void act(PortalSession& session, const std::string& line) {
    std::istringstream words(line);
    std::uint32_t first = 0;
    int y = 0;
    int button = 0;
    words >> first >> y >> button;
    if (button)
        session.movePointer(session.monitors().front().node, first, y);
    for (const bool isDown : {true, false}) {
        if (button)
            session.pressButton(button, isDown);
        else
            session.pressKey(first, isDown);
    }
}

}  // namespace

int main() {
    zelvo::platform::EventLoop loop;
    bool isStarted = false;
    bool hasFailed = false;
    PortalSession session(loop, "/dev/null",
                          {.started =
                               [&] {
                                   isStarted = true;
                                   for (const auto& monitor : session.monitors())
                                       std::cout << "Granted: " << monitor.size.width << " x "
                                                 << monitor.size.height
                                                 << (session.takesInput() ? " and input" : "")
                                                 << std::endl;
                               },
                           .failed = [&](auto) { hasFailed = true; }});
    session.start();
    while (!hasFailed) {
        pollfd ready[]{{loop.descriptor(), POLLIN, 0}, {isStarted ? STDIN_FILENO : -1, POLLIN, 0}};
        poll(ready, 2, -1);
        loop.turn({});
        std::string line;
        if (ready[1].revents && !std::getline(std::cin, line))
            return 0;
        if (ready[1].revents)
            act(session, line);
    }
    return 1;
}
