#include "server/vnc/VncServer.h"

#include <rfb/rfb.h>
// Does not say itself that it is C.
extern "C" {
#include <rfb/rfbregion.h>
}
#include <sys/epoll.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "server/vnc/Latin1.h"

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;
using platform::gate::Rights;

// A picture every so often is as many as anybody sees.
constexpr auto shortestFrame = 16ms;
// Whoever has just pressed something waits for what it does.
constexpr auto shortestAnswer = 4ms;
constexpr auto eagerness = 40ms;
// Of Tight. The next one, which is what viewers ask for, takes an eighth more of the processor.
constexpr int mostCompression = 1;

void logNothing(const char*, ...) {}

using Region = std::unique_ptr<sraRegion, decltype(&sraRgnDestroy)>;

Region regionOf(const Rectangle& part) {
    return {sraRgnCreateRect(part.x, part.y, part.x + part.width, part.y + part.height),
            &sraRgnDestroy};
}

}  // namespace

struct VncServer::Viewer {
    Viewer(VncServer& owner, ViewerId number, Rights initial)
        : server(owner), id(number), rights(initial) {}

    VncServer& server;
    const ViewerId id;
    Rights rights;
    rfbClientPtr client = nullptr;
    std::unique_ptr<platform::EventLoop::Watch> watch;
    /// What it holds down.
    std::set<std::uint32_t> keys;
    std::uint8_t buttons = 0;

    static Viewer& of(rfbClientPtr client) { return *static_cast<Viewer*>(client->clientData); }
    bool mayAct() const { return rights == Rights::Control && server.inputPasses_; }
};

VncServer::VncServer(platform::EventLoop& loop, Screen& screen, std::string name,
                     const std::atomic<bool>& inputPasses,
                     std::function<void(ScreenEnd)> screenEnded)
    : loop_(loop),
      screen_(screen),
      name_(std::move(name)),
      inputPasses_(inputPasses),
      screenEnded_(std::move(screenEnded)),
      size_(screen.size()),
      watch_(loop, screen.descriptor(), [this](auto) { screen_.dispatch(*this); }) {
    // The library logs viewers' addresses and names on standard error.
    rfbLog = logNothing;
    rfbErr = logNothing;
    vnc_ = rfbGetScreen(nullptr, nullptr, size_.width, size_.height, 8, 3, 4);
    vnc_->desktopName = name_.c_str();
    vnc_->frameBuffer = reinterpret_cast<char*>(screen_.pixels().data());
    // 24 of the 32 bits are colour, by which Tight saves a quarter.
    vnc_->serverFormat.depth = 24;
    vnc_->serverFormat.redShift = 16;
    vnc_->serverFormat.greenShift = 8;
    vnc_->serverFormat.blueShift = 0;
    vnc_->alwaysShared = TRUE;
    vnc_->deferUpdateTime = 0;
    vnc_->deferPtrUpdateTime = 0;
    vnc_->permitFileTransfer = FALSE;
    // Neither port of its own.
    vnc_->autoPort = FALSE;
    vnc_->port = 0;
    vnc_->ipv6port = 0;
    vnc_->httpDir = nullptr;
    vnc_->kbdAddEvent = [](rfbBool isDown, rfbKeySym keysym, rfbClientPtr client) {
        auto& viewer = Viewer::of(client);
        viewer.server.key(viewer, keysym, isDown);
    };
    vnc_->ptrAddEvent = [](int buttons, int x, int y, rfbClientPtr client) {
        auto& viewer = Viewer::of(client);
        viewer.server.pointer(viewer, {x, y}, static_cast<std::uint8_t>(buttons));
    };
    vnc_->setXCutText = [](char* text, int size, rfbClientPtr client) {
        auto& viewer = Viewer::of(client);
        if (viewer.mayAct())
            viewer.server.screen_.setClipboard(
                utf8(std::string(text, static_cast<std::size_t>(size))));
    };
    vnc_->setXCutTextUTF8 = [](char* text, int size, rfbClientPtr client) {
        auto& viewer = Viewer::of(client);
        // The form counts the NUL at the end.
        if (viewer.mayAct())
            viewer.server.screen_.setClipboard(
                std::string(text, ::strnlen(text, static_cast<std::size_t>(std::max(size, 0)))));
    };
    watch_.setEvents(EPOLLIN);
}

VncServer::~VncServer() {
    while (!viewers_.empty()) {
        auto viewer = viewers_.extract(viewers_.begin());
        release(*viewer.mapped());
        viewer.mapped()->watch.reset();
        rfbCloseClient(viewer.mapped()->client);
        rfbClientConnectionGone(viewer.mapped()->client);
    }
    vnc_->frameBuffer = nullptr;
    rfbScreenCleanup(vnc_);
}

void VncServer::admit(ViewerId id, platform::FileDescriptor socket, Rights rights) {
    auto viewer = std::make_unique<Viewer>(*this, id, rights);
    const int descriptor = socket.get();
    // The library closes it, also where it fails.
    viewer->client = rfbNewClient(vnc_, socket.release());
    if (!viewer->client)
        return;
    viewer->client->clientData = viewer.get();
    viewer->watch = std::make_unique<platform::EventLoop::Watch>(
        loop_, descriptor, [client = viewer->client](auto) {
            if (client->sock != RFB_INVALID_SOCKET)
                rfbProcessClientMessage(client);
        });
    viewer->watch->setEvents(EPOLLIN);
    viewers_[id] = std::move(viewer);
    if (viewers_.size() == 1) {
        screen_.setWatched(true);
        scrolls_.forget();
        hasChanged_ = true;
        // What is there is no picture of now.
        captureAgain_ = {};
    }
}

void VncServer::setRights(ViewerId id, Rights rights) {
    auto viewer = viewers_.find(id);
    if (viewer == viewers_.end())
        return;
    viewer->second->rights = rights;
    if (rights != Rights::Control)
        release(*viewer->second);
}

void VncServer::releaseInput() {
    for (auto& [id, viewer] : viewers_)
        release(*viewer);
}

void VncServer::release(Viewer& viewer) {
    for (auto keysym : std::exchange(viewer.keys, {}))
        letGo(keysym);
    // Where it is by now: the user may be about to click.
    if (std::exchange(viewer.buttons, 0) != 0)
        screen_.pointer({vnc_->cursorX, vnc_->cursorY}, 0);
    if (vnc_->pointerClient == viewer.client)
        freePointer();
}

// For as long as one viewer holds a button, the library hears no other's pointer; and that this one
// lets go, it may never hear.
void VncServer::freePointer() {
    vnc_->pointerClient = nullptr;
}

// What several hold down is down until the last of them lets it go.
void VncServer::letGo(std::uint32_t keysym) {
    if (std::none_of(viewers_.begin(), viewers_.end(),
                     [&](const auto& entry) { return entry.second->keys.contains(keysym); }))
        screen_.key(keysym, false);
}

void VncServer::key(Viewer& viewer, std::uint32_t keysym, bool isDown) {
    if (!viewer.mayAct())
        return;
    if (isDown) {
        viewer.keys.insert(keysym);
        screen_.key(keysym, true);
    } else if (viewer.keys.erase(keysym) == 0) {
        return;  // Let go already, for its sake.
    } else {
        letGo(keysym);
    }
    beEager();
}

void VncServer::pointer(Viewer& viewer, Point position, std::uint8_t buttons) {
    if (!viewer.mayAct())
        return freePointer();
    position = {std::clamp(position.x, 0, size_.width - 1),
                std::clamp(position.y, 0, size_.height - 1)};
    const bool isClick = std::exchange(viewer.buttons, buttons) != buttons;
    screen_.pointer(position, buttons);
    rfbDefaultPtrAddEvent(buttons, position.x, position.y, viewer.client);
    if (isClick)
        beEager();
}

void VncServer::beEager() {
    const auto now = platform::EventLoop::Clock::now();
    captureAgain_ = std::min(captureAgain_, now);
    eagerUntil_ = now + eagerness;
}

void VncServer::screenChanged() {
    hasChanged_ = true;
}

void VncServer::cursorChanged(const Cursor& cursor) {
    const auto count = cursor.pixels.size();
    const auto width = cursor.size.width;
    const auto height = cursor.size.height;
    if (width <= 0 || height <= 0 || count != static_cast<std::size_t>(width) * height)
        return;
    // The library frees what is marked so, and all of it with free(3).
    auto* picture = static_cast<rfbCursor*>(std::calloc(1, sizeof(rfbCursor)));
    auto* colours = static_cast<std::uint32_t*>(std::malloc(count * 4));
    auto* alpha = static_cast<unsigned char*>(std::malloc(count));
    for (std::size_t i = 0; i < count; ++i) {
        colours[i] = cursor.pixels[i] & 0xFFFFFFU;
        alpha[i] = static_cast<unsigned char>(cursor.pixels[i] >> 24U);
    }
    picture->cleanup = picture->cleanupRichSource = picture->cleanupMask = TRUE;
    picture->width = static_cast<unsigned short>(width);
    picture->height = static_cast<unsigned short>(height);
    picture->xhot = static_cast<unsigned short>(cursor.hotSpot.x);
    picture->yhot = static_cast<unsigned short>(cursor.hotSpot.y);
    picture->richSource = reinterpret_cast<unsigned char*>(colours);
    picture->alphaSource = alpha;
    picture->alphaPreMultiplied = TRUE;
    picture->mask =
        reinterpret_cast<unsigned char*>(rfbMakeMaskFromAlphaSource(width, height, alpha));
    rfbSetCursor(vnc_, picture);
}

void VncServer::cursorMoved(Point position) {
    if (vnc_->cursorX == position.x && vnc_->cursorY == position.y)
        return;
    vnc_->cursorX = position.x;
    vnc_->cursorY = position.y;
    for (auto& [id, viewer] : viewers_) {
        if (viewer->client->enableCursorPosUpdates)
            viewer->client->cursorWasMoved = TRUE;
    }
}

void VncServer::clipboardChanged(const std::string& text) {
    auto copy = text;
    auto fallback = latin1(text);
    sendClipboard(true, [&] {
        rfbSendServerCutTextUTF8(vnc_, copy.data(), static_cast<int>(copy.size()), nullptr, 0);
    });
    // To these the same call would announce the size that the text has in UTF-8.
    sendClipboard(false, [&] {
        rfbSendServerCutText(vnc_, fallback.data(), static_cast<int>(fallback.size()));
    });
}

void VncServer::sendClipboard(bool inUtf8, const std::function<void()>& send) {
    // The library tells all who have a socket.
    std::map<rfbClientPtr, rfbSocket> hidden;
    for (auto& [id, viewer] : viewers_) {
        const bool takesUtf8 = viewer->client->enableExtendedClipboard;
        if (viewer->rights != Rights::Control || takesUtf8 != inUtf8) {
            hidden[viewer->client] = viewer->client->sock;
            viewer->client->sock = RFB_INVALID_SOCKET;
        }
    }
    send();
    for (auto [client, socket] : hidden)
        client->sock = socket;
}

void VncServer::screenEnded(ScreenEnd end) {
    watch_.setEvents(0);
    screenEnded_(end);
}

bool VncServer::anybodyWaits() const {
    return std::any_of(viewers_.begin(), viewers_.end(), [](const auto& entry) {
        auto* client = entry.second->client;
        return client->state == _rfbClientRec::RFB_NORMAL && !sraRgnEmpty(client->requestedRegion);
    });
}

VncServer::Time VncServer::nextDeadline() const {
    return hasChanged_ && anybodyWaits() ? captureAgain_ : Time::max();
}

void VncServer::capture(Time now) {
    hasChanged_ = false;
    captureAgain_ = now + (now < eagerUntil_ ? shortestAnswer : shortestFrame);
    auto changed = screen_.capture(*this);
    if (screen_.size() != size_ ||
        reinterpret_cast<char*>(screen_.pixels().data()) != vnc_->frameBuffer)
        return fitToScreen();
    Region modified(sraRgnCreate(), &sraRgnDestroy);
    for (const auto& part : changed)
        sraRgnOr(modified.get(), regionOf(part).get());
    if (const auto scroll = findScroll(changed)) {
        const auto target = regionOf(scroll->target);
        rfbScheduleCopyRegion(vnc_, target.get(), 0, -scroll->from);
        sraRgnSubtract(modified.get(), target.get());
    }
    rfbMarkRegionAsModified(vnc_, modified.get());
}

std::optional<ScrollFinder::Scroll> VncServer::findScroll(const std::vector<Rectangle>& changed) {
    if (std::any_of(viewers_.begin(), viewers_.end(),
                    [](const auto& entry) { return entry.second->client->useCopyRect; }))
        return scrolls_.find(screen_.pixels(), size_, changed);
    scrolls_.forget();
    return std::nullopt;
}

void VncServer::fitToScreen() {
    scrolls_.forget();
    size_ = screen_.size();
    auto format = vnc_->serverFormat;
    rfbNewFramebuffer(vnc_, reinterpret_cast<char*>(screen_.pixels().data()), size_.width,
                      size_.height, 8, 3, 4);
    // The library falls back to a format of its own, and has set its viewers up for that.
    vnc_->serverFormat = format;
    for (auto& [id, viewer] : viewers_)
        vnc_->setTranslateFunction(viewer->client);
}

void VncServer::tick(Time now) {
    removeGone();
    screen_.dispatch(*this);
    if (hasChanged_ && now >= captureAgain_ && anybodyWaits())
        capture(now);
    for (auto& [id, viewer] : viewers_) {
        auto* client = viewer->client;
        if (client->sock == RFB_INVALID_SOCKET)
            continue;
        client->tightCompressLevel = std::min(client->tightCompressLevel, mostCompression);
        rfbUpdateClient(client);
    }
    removeGone();
}

void VncServer::removeGone() {
    for (auto entry = viewers_.begin(); entry != viewers_.end();) {
        auto& viewer = *entry->second;
        if (viewer.client->sock != RFB_INVALID_SOCKET) {
            ++entry;
            continue;
        }
        release(viewer);
        viewer.watch.reset();
        rfbClientConnectionGone(viewer.client);
        entry = viewers_.erase(entry);
        if (viewers_.empty())
            screen_.setWatched(false);
    }
}

}  // namespace zelvo::server
