#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"
#include "server/screen/wlroots/WlrootsConnection.h"

namespace zelvo::server {

/// The clipboard of the user's seat, both ways, as UTF-8 text.
class WlrootsClipboard {
  public:
    /// Longer texts are neither taken nor told of. In bytes.
    static constexpr std::size_t longestText = 1024 * 1024;

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
    /// A pipe from or to another program.
    struct Transfer {
        platform::FileDescriptor pipe;
        std::string text;
        std::size_t done = 0;
        std::unique_ptr<platform::EventLoop::Watch> watch;
    };

    void selected(zwlr_data_control_offer_v1* offer);
    void read();
    void write(platform::FileDescriptor pipe);
    void goOn(Transfer& transfer);

    platform::EventLoop& loop_;
    WlrootsConnection& wayland_;
    const std::function<void(const std::string&)> copied_;
    Proxy<zwlr_data_control_device_v1> device_;
    std::map<zwlr_data_control_offer_v1*, Offer> offers_;
    bool isWatched_ = false;
    std::unique_ptr<Transfer> incoming_;
    Proxy<zwlr_data_control_source_v1> source_;
    std::string text_;
    std::deque<std::unique_ptr<Transfer>> outgoing_;
};

}  // namespace zelvo::server
