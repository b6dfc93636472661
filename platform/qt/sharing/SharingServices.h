#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/SharingServicePicker.h"

class QWidget;

namespace zelvo::platform {

class Bundle;
class WayIn;
class Workspace;
struct Notice;

/// What this desktop can do with the share items (a text, the link, a text), in the menu's order:
/// an e-mail, a text message, a QR code, the link's page; each only where something is there that
/// takes it, though it may still refuse, which is said of an e-mail and the workspace knows of a
/// message. Mail and message name the page, too, and the code is its address. A mail program gets
/// the link in its arguments, which other users of the computer may see; a message's text goes by
/// the clipboard. The window and the workspace outlive what is returned.
std::vector<SharingService> desktopSharingServices(const std::vector<std::string>& items,
                                                   const WayIn& wayIn, const Bundle& bundle,
                                                   Workspace& workspace, QWidget* window,
                                                   std::function<void(const Notice&)> say);

/// Whether a program is registered for the URL scheme (the MIME applications of freedesktop.org).
bool hasSchemeHandler(const std::string& scheme);

}  // namespace zelvo::platform
