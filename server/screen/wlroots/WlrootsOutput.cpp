#include "server/screen/wlroots/WlrootsOutput.h"

#include <wayland-client-protocol.h>
#include <wlr-screencopy-unstable-v1.h>
#include <xdg-output-unstable-v1.h>

#include <utility>

namespace zelvo::server {

namespace {

WlrootsOutput& self(void* data) {
    return *static_cast<WlrootsOutput*>(data);
}

}  // namespace

/// What the compositor tells of an output and of its copies.
struct WlrootsOutput::Listeners {
    wl_output_listener output{
        .geometry =
            [](void* data, wl_output*, std::int32_t, std::int32_t, std::int32_t, std::int32_t,
               std::int32_t, const char*, const char*, std::int32_t transform) {
                self(data).transform_ = transform;
                self(data).news_();
            },
        .mode =
            [](void* data, wl_output*, std::uint32_t flags, std::int32_t width, std::int32_t height,
               std::int32_t) {
                if (!(flags & WL_OUTPUT_MODE_CURRENT))
                    return;
                self(data).mode_ = {width, height};
                self(data).news_();
            },
        .done = [](void*, wl_output*) {},
        .scale = [](void*, wl_output*, std::int32_t) {},
        .name = nullptr,
        .description = nullptr};
    zxdg_output_v1_listener logical{
        .logical_position =
            [](void* data, zxdg_output_v1*, std::int32_t x, std::int32_t y) {
                self(data).place_.x = x;
                self(data).place_.y = y;
                self(data).news_();
            },
        .logical_size =
            [](void* data, zxdg_output_v1*, std::int32_t width, std::int32_t height) {
                self(data).place_.width = width;
                self(data).place_.height = height;
                self(data).news_();
            },
        .done = [](void*, zxdg_output_v1*) {},
        .name = [](void*, zxdg_output_v1*, const char*) {},
        .description = [](void*, zxdg_output_v1*, const char*) {}};
    zwlr_screencopy_frame_v1_listener frame{
        .buffer =
            [](void* data, zwlr_screencopy_frame_v1*, std::uint32_t format, std::uint32_t width,
               std::uint32_t height, std::uint32_t stride) {
                self(data).offered(format, {static_cast<int>(width), static_cast<int>(height)},
                                   static_cast<int>(stride));
            },
        .flags =
            [](void* data, zwlr_screencopy_frame_v1*, std::uint32_t flags) {
                self(data).layout_.isUpsideDown = flags & ZWLR_SCREENCOPY_FRAME_V1_FLAGS_Y_INVERT;
            },
        .ready = [](void* data, zwlr_screencopy_frame_v1*, std::uint32_t, std::uint32_t,
                    std::uint32_t) { self(data).finish(WlrootsOutput::Copy::Here); },
        .failed = [](void* data,
                     zwlr_screencopy_frame_v1*) { self(data).finish(WlrootsOutput::Copy::Failed); },
        .damage =
            [](void* data, zwlr_screencopy_frame_v1*, std::uint32_t x, std::uint32_t y,
               std::uint32_t width, std::uint32_t height) {
                self(data).damage_.push_back({static_cast<int>(x), static_cast<int>(y),
                                              static_cast<int>(width), static_cast<int>(height)});
            },
        .linux_dmabuf = [](void*, zwlr_screencopy_frame_v1*, std::uint32_t, std::uint32_t,
                           std::uint32_t) {},
        .buffer_done = [](void* data, zwlr_screencopy_frame_v1*) { self(data).fill(); }};
};
const WlrootsOutput::Listeners WlrootsOutput::listeners;

WlrootsOutput::WlrootsOutput(WlrootsConnection& wayland, std::uint32_t name,
                             std::function<void()> news)
    : wayland_(wayland),
      name_(name),
      news_(std::move(news)),
      output_(wayland.output(name)),
      logical_(zxdg_output_manager_v1_get_xdg_output(wayland.outputs(), output_.get())) {
    wl_output_add_listener(output_.get(), &listeners.output, this);
    zxdg_output_v1_add_listener(logical_.get(), &listeners.logical, this);
}

void WlrootsOutput::ask(bool onlyChanges) {
    copy_ = Copy::Coming;
    onlyChanges_ = onlyChanges;
    layout_ = {};
    damage_.clear();
    // With the pointer in it, of which nothing else tells.
    frame_.reset(
        zwlr_screencopy_manager_v1_capture_output(wayland_.screencopy(), 1, output_.get()));
    zwlr_screencopy_frame_v1_add_listener(frame_.get(), &listeners.frame, this);
}

void WlrootsOutput::takeBack() {
    frame_.reset();
    copy_ = Copy::None;
}

void WlrootsOutput::forget() {
    takeBack();
    buffer_.reset();
    memory_.reset();
}

void WlrootsOutput::offered(std::uint32_t format, Size size, int stride) {
    layout_.format = format;
    layout_.size = size;
    layout_.stride = stride;
    // Before version 3 there is nothing else that it could be.
    if (zwlr_screencopy_frame_v1_get_version(frame_.get()) <
        ZWLR_SCREENCOPY_FRAME_V1_BUFFER_DONE_SINCE_VERSION)
        fill();
}

void WlrootsOutput::fill() {
    const bool isSame = buffer_ && bufferLayout_.format == layout_.format &&
                        bufferLayout_.size == layout_.size &&
                        bufferLayout_.stride == layout_.stride;
    if (!isSame) {
        buffer_.reset();
        memory_.reset();
        const auto size = static_cast<std::size_t>(layout_.stride) *
                          static_cast<std::size_t>(layout_.size.height);
        if (auto memory = size > 0 ? SharedMemory::make(size) : std::nullopt)
            memory_.emplace(std::move(*memory));
        else
            return finish(Copy::Failed);
        auto* pool = wl_shm_create_pool(wayland_.shm(), memory_->descriptor(),
                                        static_cast<std::int32_t>(size));
        buffer_.reset(wl_shm_pool_create_buffer(pool, 0, layout_.size.width, layout_.size.height,
                                                layout_.stride, layout_.format));
        wl_shm_pool_destroy(pool);
        bufferLayout_ = layout_;
    }
    if (onlyChanges_)
        zwlr_screencopy_frame_v1_copy_with_damage(frame_.get(), buffer_.get());
    else
        zwlr_screencopy_frame_v1_copy(frame_.get(), buffer_.get());
}

void WlrootsOutput::finish(Copy result) {
    frame_.reset();
    copy_ = result;
    news_();
}

std::optional<PixelReader> WlrootsOutput::reader() const {
    if (!memory_ || layout_.size != mode_)
        return std::nullopt;
    auto layout = layout_;
    layout.data = memory_->data();
    layout.transform = transform_;
    return PixelReader::make(layout);
}

std::vector<Rectangle> WlrootsOutput::damage() const {
    if (onlyChanges_ && transform_ == WL_OUTPUT_TRANSFORM_NORMAL && !layout_.isUpsideDown)
        return damage_;
    return {{0, 0, pixels().width, pixels().height}};
}

}  // namespace zelvo::server
