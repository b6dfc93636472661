#pragma once

#include <functional>
#include <map>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "server/screen/transfers/TextPipes.h"
#include "server/screen/wlroots/WlrootsConnection.h"

namespace zelvo::server {

/// The clipboard of the user's seat, both ways, as UTF-8 text.
class WlrootsClipboard {
  public:
    WlrootsClipboard(platform::EventLoop& loop, WlrootsConnection& wayland,
                     std::function<void(const std::string& text)> copied);
    WlrootsClipboard(const WlrootsClipboard&) = delete;
    WlrootsClipboard& operator=(const WlrootsClipboard&) = delete;
    ~WlrootsClipboard();

    bool isThere() const { return device_ != nullptr; }
    /// Texts that others copy are asked for, and told of, only while it is watched.
    void setWatched(bool isWatched);
    /// Becomes the owner, for as long as nobody else copies something.
    void set(std::string text);

  private:
    struct Listeners;
    static const Listeners listeners;
    /// What somebody else has copied.
    struct Offer {
        Proxy<zwlr_data_control_offer_v1> proxy;
        /// The best form of text in it.
        std::string type;
        bool isOurs = false;
    };

    void selected(zwlr_data_control_offer_v1* offer);
    void read();

    WlrootsConnection& wayland_;
    const std::function<void(const std::string&)> copied_;
    Proxy<zwlr_data_control_device_v1> device_;
    std::map<zwlr_data_control_offer_v1*, Offer> offers_;
    bool isWatched_ = false;
    Proxy<zwlr_data_control_source_v1> source_;
    std::string text_;
    TextPipes pipes_;
};

}  // namespace zelvo::server
