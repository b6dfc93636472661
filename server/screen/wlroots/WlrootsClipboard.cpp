#include "server/screen/wlroots/WlrootsClipboard.h"

#include <fcntl.h>
#include <wlr-data-control-unstable-v1.h>

#include <array>
#include <string_view>
#include <utility>

namespace zelvo::server {

namespace {

/// The form by which we know what we have offered ourselves.
constexpr const char* ownType = "application/x-zelvo-screensharingd";

WlrootsClipboard& clipboard(void* data) {
    return *static_cast<WlrootsClipboard*>(data);
}

}  // namespace

/// What the compositor tells of the clipboard.
struct WlrootsClipboard::Listeners {
    zwlr_data_control_offer_v1_listener offer{
        .offer = [](void* data, zwlr_data_control_offer_v1* proxy, const char* type) {
            auto& offer = clipboard(data).offers_[proxy];
            offer.isOurs = offer.isOurs || std::string_view(type) == ownType;
            if (isBetterTextType(type, offer.type))
                offer.type = type;
        }};
    zwlr_data_control_device_v1_listener device{
        .data_offer =
            [](void* data, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* proxy) {
                clipboard(data).offers_[proxy].proxy.reset(proxy);
                zwlr_data_control_offer_v1_add_listener(proxy, &listeners.offer, data);
            },
        .selection = [](void* data, zwlr_data_control_device_v1*,
                        zwlr_data_control_offer_v1* proxy) { clipboard(data).selected(proxy); },
        .finished =
            [](void* data, zwlr_data_control_device_v1*) {
                clipboard(data).offers_.clear();
                clipboard(data).device_.reset();
            },
        .primary_selection = [](void*, zwlr_data_control_device_v1*,
                                zwlr_data_control_offer_v1*) {}};
    zwlr_data_control_source_v1_listener source{
        .send =
            [](void* data, zwlr_data_control_source_v1*, const char*, int pipe) {
                auto& owner = clipboard(data);
                owner.pipes_.write(platform::FileDescriptor(pipe), owner.text_);
            },
        .cancelled =
            [](void* data, zwlr_data_control_source_v1* proxy) {
                // A source of ours may have been replaced by another.
                if (clipboard(data).source_.get() == proxy)
                    clipboard(data).source_.reset();
            }};
};
const WlrootsClipboard::Listeners WlrootsClipboard::listeners;

WlrootsClipboard::WlrootsClipboard(platform::EventLoop& loop, WlrootsConnection& wayland,
                                   std::function<void(const std::string&)> copied)
    : wayland_(wayland), copied_(std::move(copied)), pipes_(loop) {
    if (!wayland_.clipboards())
        return;
    device_.reset(
        zwlr_data_control_manager_v1_get_data_device(wayland_.clipboards(), wayland_.seat()));
    zwlr_data_control_device_v1_add_listener(device_.get(), &listeners.device, this);
}

WlrootsClipboard::~WlrootsClipboard() = default;

void WlrootsClipboard::setWatched(bool isWatched) {
    isWatched_ = isWatched;
    if (!isWatched)
        pipes_.stopReading();
}

void WlrootsClipboard::selected(zwlr_data_control_offer_v1* offer) {
    std::erase_if(offers_, [&](const auto& known) { return known.first != offer; });
    pipes_.stopReading();
    if (isWatched_ && offer && !offers_[offer].isOurs && !offers_[offer].type.empty())
        read();
}

void WlrootsClipboard::read() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    pipes_.read(platform::FileDescriptor(ends[0]), copied_);
    const platform::FileDescriptor theirs(ends[1]);
    const auto& offer = offers_.begin()->second;
    zwlr_data_control_offer_v1_receive(offer.proxy.get(), offer.type.c_str(), theirs.get());
    wayland_.flush();
}

void WlrootsClipboard::set(std::string text) {
    if (!device_ || text.size() > TextPipes::longestText)
        return;
    text_ = std::move(text);
    Proxy<zwlr_data_control_source_v1> source(
        zwlr_data_control_manager_v1_create_data_source(wayland_.clipboards()));
    zwlr_data_control_source_v1_add_listener(source.get(), &listeners.source, this);
    for (const char* type :
         {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING", "TEXT", "STRING", ownType})
        zwlr_data_control_source_v1_offer(source.get(), type);
    zwlr_data_control_device_v1_set_selection(device_.get(), source.get());
    source_ = std::move(source);
    wayland_.flush();
}

}  // namespace zelvo::server
