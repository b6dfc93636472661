#include "server/screen/x11/X11Picture.h"

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>

#include "server/screen/ChangedTiles.h"

namespace zelvo::server {

namespace {

/// Side of the squares in which pictures are compared.
constexpr int tile = 64;
/// More parts than these are taken as one.
constexpr std::size_t mostParts = 24;
/// Shared with the X server, and so the most that is fetched at once, save where a single row of
/// tiles is more: of a screen that is 1,920 wide, one. A whole screen would cost as much memory
/// again as the picture itself.
constexpr std::size_t sharedMemory = 512 * 1024;

Rectangle within(Rectangle part, Size size) {
    const int right = std::min(part.x + part.width, size.width);
    const int bottom = std::min(part.y + part.height, size.height);
    part.x = std::clamp(part.x, 0, size.width);
    part.y = std::clamp(part.y, 0, size.height);
    part.width = std::max(right - part.x, 0);
    part.height = std::max(bottom - part.y, 0);
    return part;
}

Rectangle around(const std::vector<Rectangle>& parts) {
    Rectangle all = parts.front();
    for (const auto& part : parts) {
        const int right = std::max(all.x + all.width, part.x + part.width);
        const int bottom = std::max(all.y + all.height, part.y + part.height);
        all.x = std::min(all.x, part.x);
        all.y = std::min(all.y, part.y);
        all.width = right - all.x;
        all.height = bottom - all.y;
    }
    return all;
}

std::uint32_t channel(std::uint32_t pixel, std::uint32_t mask) {
    const auto value = (pixel & mask) >> static_cast<unsigned>(std::countr_zero(mask));
    const auto bits = std::popcount(mask);
    return bits >= 8 ? value >> static_cast<unsigned>(bits - 8)
                     : value * 255U / ((1U << static_cast<unsigned>(bits)) - 1U);
}

}  // namespace

X11Picture::X11Picture(X11Connection& x) : x_(x) {
    region_ = xcb_generate_id(x_);
    xcb_xfixes_create_region(x_, region_, 0, nullptr);
    resize({x_.screen().width_in_pixels, x_.screen().height_in_pixels});
}

X11Picture::~X11Picture() {
    closeSharedMemory();
}

void X11Picture::resize(Size size) {
    if (size == size_ || size.width <= 0 || size.height <= 0)
        return;
    size_ = size;
    const auto count = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    memory_.reset(static_cast<std::uint32_t*>(std::calloc(count, sizeof(std::uint32_t))));
    if (!memory_)
        throw std::bad_alloc();
    pixels_ = {memory_.get(), count};
    wantsAll_ = true;
    closeSharedMemory();
    openSharedMemory();
}

void X11Picture::openSharedMemory() {
    const auto* extension = xcb_get_extension_data(x_, &xcb_shm_id);
    if (!extension || !extension->present)
        return;
    const auto size = std::max(sharedMemory, stride(size_.width) * tile);
    const int id = ::shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (id < 0)
        return;
    void* memory = ::shmat(id, nullptr, 0);
    segment_ = xcb_generate_id(x_);
    Reply<xcb_generic_error_t> error;
    if (memory != reinterpret_cast<void*>(-1))
        error.reset(xcb_request_check(
            x_, xcb_shm_attach_checked(x_, segment_, static_cast<std::uint32_t>(id), 0)));
    // It lives for as long as both sides have it.
    ::shmctl(id, IPC_RMID, nullptr);
    if (memory == reinterpret_cast<void*>(-1) || error) {
        // A display on another machine, or in another namespace.
        if (memory != reinterpret_cast<void*>(-1))
            ::shmdt(memory);
        segment_ = XCB_NONE;
        return;
    }
    shared_ = static_cast<std::byte*>(memory);
}

void X11Picture::closeSharedMemory() {
    if (!shared_)
        return;
    xcb_shm_detach(x_, segment_);
    ::shmdt(shared_);
    shared_ = nullptr;
    segment_ = XCB_NONE;
}

void X11Picture::setWatched(bool isWatched) {
    if (isWatched == isWatched_)
        return;
    isWatched_ = isWatched;
    if (isWatched) {
        damage_ = xcb_generate_id(x_);
        xcb_damage_create(x_, damage_, x_.root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        wantsAll_ = true;
    } else {
        xcb_damage_destroy(x_, damage_);
        forget();
    }
    xcb_flush(x_);
}

/// Nobody needs the picture for now, nor its memory: it is black again.
void X11Picture::forget() {
    void* first = pixels_.data();
    auto size = pixels_.size_bytes();
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (std::align(page, page, first, size))
        ::madvise(first, size / page * page, MADV_DONTNEED);
}

std::vector<Rectangle> X11Picture::damage() {
    std::vector<Rectangle> parts;
    if (isWatched_) {
        // In this order, so that what changes from now on is told anew.
        xcb_damage_subtract(x_, damage_, XCB_NONE, region_);
        Reply<xcb_xfixes_fetch_region_reply_t> reply(
            xcb_xfixes_fetch_region_reply(x_, xcb_xfixes_fetch_region(x_, region_), nullptr));
        if (reply) {
            const auto* first = xcb_xfixes_fetch_region_rectangles(reply.get());
            const auto count = xcb_xfixes_fetch_region_rectangles_length(reply.get());
            for (int i = 0; i < count; ++i)
                parts.push_back({first[i].x, first[i].y, first[i].width, first[i].height});
        }
    }
    if (wantsAll_)
        return {{0, 0, size_.width, size_.height}};
    if (parts.size() > mostParts)
        parts = {around(parts)};
    return parts;
}

std::vector<Rectangle> X11Picture::capture() {
    std::vector<Rectangle> changed;
    for (const auto& part : damage()) {
        // Whole tiles, so that parts compare with what was compared before.
        Rectangle aligned{part.x / tile * tile, part.y, 0, part.height};
        aligned.width = (part.x + part.width + tile - 1) / tile * tile - aligned.x;
        captureRows(within(aligned, size_), changed);
    }
    if (wantsAll_) {
        // What came before has been another picture.
        changed = {{0, 0, size_.width, size_.height}};
        wantsAll_ = false;
    }
    return changed;
}

void X11Picture::captureRows(const Rectangle& band, std::vector<Rectangle>& changed) {
    if (band.width == 0)
        return;
    const auto whole = sharedMemory / stride(band.width) / tile * tile;
    const int rows = std::max(static_cast<int>(whole), tile);
    for (int done = 0; done < band.height; done += rows) {
        const Rectangle part{band.x, band.y + done, band.width, std::min(rows, band.height - done)};
        if (const auto* image = fetch(part))
            compare(part, image, changed);
    }
}

std::size_t X11Picture::stride(int width) const {
    // Rows are padded to 32 bits.
    return (static_cast<std::size_t>(width) * static_cast<std::size_t>(x_.bitsPerPixel() / 8) + 3) /
           4 * 4;
}

const std::byte* X11Picture::fetch(const Rectangle& band) {
    const auto x = static_cast<std::int16_t>(band.x);
    const auto y = static_cast<std::int16_t>(band.y);
    const auto width = static_cast<std::uint16_t>(band.width);
    const auto height = static_cast<std::uint16_t>(band.height);
    if (shared_) {
        Reply<xcb_shm_get_image_reply_t> reply(
            xcb_shm_get_image_reply(x_,
                                    xcb_shm_get_image(x_, x_.root(), x, y, width, height, ~0U,
                                                      XCB_IMAGE_FORMAT_Z_PIXMAP, segment_, 0),
                                    nullptr));
        // Fails, too, where the screen has just become smaller.
        return reply ? shared_ : nullptr;
    }
    reply_.reset(xcb_get_image_reply(
        x_, xcb_get_image(x_, XCB_IMAGE_FORMAT_Z_PIXMAP, x_.root(), x, y, width, height, ~0U),
        nullptr));
    return reply_ ? reinterpret_cast<const std::byte*>(xcb_get_image_data(reply_.get())) : nullptr;
}

void X11Picture::convertRow(const std::byte* from, std::uint32_t* to, int count) const {
    const auto& visual = x_.visual();
    if (x_.bitsPerPixel() == 32 && visual.red_mask == 0xFF0000U && visual.green_mask == 0xFF00U &&
        visual.blue_mask == 0xFFU) {
        std::memcpy(to, from, static_cast<std::size_t>(count) * 4);
        for (int i = 0; i < count; ++i)
            to[i] &= 0xFFFFFFU;
        return;
    }
    for (int i = 0; i < count; ++i) {
        std::uint32_t pixel = 0;
        const auto bytes = static_cast<std::size_t>(x_.bitsPerPixel() / 8);
        std::memcpy(&pixel, from + static_cast<std::size_t>(i) * bytes, bytes);
        to[i] = channel(pixel, visual.red_mask) << 16U | channel(pixel, visual.green_mask) << 8U |
                channel(pixel, visual.blue_mask);
    }
}

void X11Picture::compare(const Rectangle& band, const std::byte* image,
                         std::vector<Rectangle>& changed) {
    const auto stride = this->stride(band.width);
    updateTiles(
        pixels_, size_, band,
        [&](int y, std::uint32_t* to) {
            convertRow(image + static_cast<std::size_t>(y) * stride, to, band.width);
        },
        changed);
}

}  // namespace zelvo::server
