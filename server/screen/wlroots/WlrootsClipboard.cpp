#include "server/screen/wlroots/WlrootsClipboard.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <wlr-data-control-unstable-v1.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace zelvo::server {

namespace {

/// The forms of UTF-8 text, the best first.
constexpr std::array<std::string_view, 3> textTypes{"text/plain;charset=utf-8", "UTF8_STRING",
                                                    "text/plain"};
/// The form by which we know what we have offered ourselves.
constexpr const char* ownType = "application/x-zelvo-screensharingd";
/// So many programs may take their time to paste.
constexpr std::size_t mostTransfers = 8;

bool isBetter(std::string_view type, std::string_view than) {
    auto rank = [](std::string_view name) {
        return std::find(textTypes.begin(), textTypes.end(), name);
    };
    return rank(type) < rank(than);
}

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
            if (isBetter(type, offer.type))
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
        .send = [](void* data, zwlr_data_control_source_v1*, const char*,
                   int pipe) { clipboard(data).write(platform::FileDescriptor(pipe)); },
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
    : loop_(loop), wayland_(wayland), copied_(std::move(copied)) {
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
        incoming_.reset();
}

void WlrootsClipboard::selected(zwlr_data_control_offer_v1* offer) {
    std::erase_if(offers_, [&](const auto& known) { return known.first != offer; });
    incoming_.reset();
    if (isWatched_ && offer && !offers_[offer].isOurs && !offers_[offer].type.empty())
        read();
}

void WlrootsClipboard::read() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    incoming_ = std::make_unique<Transfer>();
    incoming_->pipe.reset(ends[0]);
    const platform::FileDescriptor theirs(ends[1]);
    const auto& offer = offers_.begin()->second;
    zwlr_data_control_offer_v1_receive(offer.proxy.get(), offer.type.c_str(), theirs.get());
    wayland_.flush();
    incoming_->watch = std::make_unique<platform::EventLoop::Watch>(loop_, ends[0], [this](auto) {
        std::array<char, 65536> part;
        const auto count = ::read(incoming_->pipe.get(), part.data(), part.size());
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (count > 0 && incoming_->text.size() <= longestText) {
            incoming_->text.append(part.data(), static_cast<std::size_t>(count));
            return;
        }
        const auto text = std::move(incoming_->text);
        incoming_.reset();
        if (count == 0 && !text.empty() && text.size() <= longestText)
            copied_(text);
    });
    incoming_->watch->setEvents(EPOLLIN);
}

void WlrootsClipboard::set(std::string text) {
    if (!device_ || text.size() > longestText)
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

void WlrootsClipboard::write(platform::FileDescriptor pipe) {
    ::fcntl(pipe.get(), F_SETFL, ::fcntl(pipe.get(), F_GETFL) | O_NONBLOCK);
    if (outgoing_.size() == mostTransfers)
        outgoing_.pop_front();
    auto& transfer = *outgoing_.emplace_back(std::make_unique<Transfer>());
    transfer.pipe = std::move(pipe);
    transfer.text = text_;
    transfer.watch = std::make_unique<platform::EventLoop::Watch>(
        loop_, transfer.pipe.get(), [this, &transfer](auto) { goOn(transfer); });
    transfer.watch->setEvents(EPOLLOUT);
}

void WlrootsClipboard::goOn(Transfer& transfer) {
    const auto count = ::write(transfer.pipe.get(), transfer.text.data() + transfer.done,
                               transfer.text.size() - transfer.done);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    transfer.done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    if (count > 0 && transfer.done < transfer.text.size())
        return;
    std::erase_if(outgoing_, [&](const auto& known) { return known.get() == &transfer; });
}

}  // namespace zelvo::server
