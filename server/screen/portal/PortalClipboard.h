#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "server/screen/portal/PortalBus.h"
#include "server/screen/transfers/TextPipes.h"

namespace zelvo::server {

/// The clipboard of a portal's session, both ways, as UTF-8 text. Nothing happens before `begin`.
class PortalClipboard {
  public:
    static constexpr const char* interface = "org.freedesktop.portal.Clipboard";

    PortalClipboard(platform::EventLoop& loop, PortalBus& bus) : bus_(bus), pipes_(loop) {}
    PortalClipboard(const PortalClipboard&) = delete;
    PortalClipboard& operator=(const PortalClipboard&) = delete;

    /// The session has started, and the portal has said that it shares the clipboard.
    void begin(const std::string& session);
    bool isThere() const { return !session_.empty(); }

    /// Hears of what others copy, only while it is watched.
    void setListener(std::function<void(const std::string& text)> copied) {
        copied_ = std::move(copied);
    }
    void setWatched(bool isWatched);
    /// Becomes the owner, for as long as nobody else copies something.
    void set(std::string text);

  private:
    void ownerChanged(sd_bus_message* signal);
    void read(const std::string& type);
    void write(std::uint32_t serial);
    /// Begins a call about the session with what follows of its arguments.
    void call(const char* method, const PortalBus::Arguments& arguments, PortalBus::Reply reply);

    PortalBus& bus_;
    std::string session_;
    std::function<void(const std::string&)> copied_;
    bool isWatched_ = false;
    /// Of those who owned it, to know a reply that came too late.
    std::uint64_t owners_ = 0;
    std::string text_;
    TextPipes pipes_;
};

}  // namespace zelvo::server
