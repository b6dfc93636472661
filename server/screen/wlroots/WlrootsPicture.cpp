#include "server/screen/wlroots/WlrootsPicture.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "server/screen/ChangedTiles.h"

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;

/// As long as compositors take that draw at their screens' pace, and some more.
constexpr auto longestWait = 250ms;
/// Until an output that could not be copied is tried again.
constexpr timespec pause{0, 500'000'000};
/// Of a side of a picture (RFC 6143, section 7.3.2, has it in 16 bits; viewers read them as they
/// like).
constexpr int longestSide = 32767;

/// What of the part lies in the picture.
Rectangle cut(Rectangle part, Size size) {
    const int right = std::min(part.x + part.width, size.width);
    const int bottom = std::min(part.y + part.height, size.height);
    part.x = std::clamp(part.x, 0, size.width);
    part.y = std::clamp(part.y, 0, size.height);
    part.width = std::max(right - part.x, 0);
    part.height = std::max(bottom - part.y, 0);
    return part;
}

bool isSame(const Rectangle& one, const Rectangle& other) {
    return one.x == other.x && one.y == other.y && one.width == other.width &&
           one.height == other.height;
}

int beyond(int value, int from, int length) {
    return std::max({from - value, value - (from + length - 1), 0});
}

}  // namespace

bool WlrootsPicture::Part::operator==(const Part& other) const {
    return output == other.output && isSame(place, other.place) && isSame(logical, other.logical) &&
           transform == other.transform;
}

WlrootsPicture::WlrootsPicture(platform::EventLoop& loop, WlrootsConnection& wayland,
                               std::function<void()> changed)
    : wayland_(wayland),
      changed_(std::move(changed)),
      again_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      watch_(loop, again_.get(), [this](auto) { tryAgain(); }) {
    watch_.setEvents(EPOLLIN);
    wayland_.watchOutputs(
        [this](std::uint32_t name) {
            outputs_.push_back(std::make_unique<WlrootsOutput>(wayland_, name, changed_));
        },
        [this](std::uint32_t name) {
            std::erase_if(outputs_, [&](const auto& output) { return output->name() == name; });
            changed_();
        });
    // For the size that the first viewer is told.
    wayland_.wait(
        [this] {
            return std::all_of(outputs_.begin(), outputs_.end(), [](const auto& output) {
                return output->place().width > 0 && output->pixels().width > 0;
            });
        },
        longestWait);
    arrange();
}

void WlrootsPicture::setWatched(bool isWatched) {
    isWatched_ = isWatched;
    wantsAll_ = true;
    for (auto& output : outputs_)
        output->forget();
    // What the next one sees first is nothing of before.
    if (!isWatched)
        std::fill(pixels_.begin(), pixels_.end(), 0U);
}

WlrootsOutput* WlrootsPicture::find(std::uint32_t name) const {
    auto found = std::find_if(outputs_.begin(), outputs_.end(),
                              [&](const auto& output) { return output->name() == name; });
    return found == outputs_.end() ? nullptr : found->get();
}

std::vector<WlrootsPicture::Part> WlrootsPicture::parts() const {
    std::vector<Part> parts;
    for (const auto& output : outputs_) {
        const auto logical = output->place();
        const auto [width, height] = output->pixels();
        if (logical.width > 0 && logical.height > 0 && width > 0 && height > 0)
            parts.push_back({output->name(), {0, 0, width, height}, logical, output->transform()});
    }
    return parts;
}

/// Puts the outputs where they are now; tells whether that is elsewhere than before.
bool WlrootsPicture::arrange() {
    auto parts = this->parts();
    auto left = std::numeric_limits<int>::max();
    auto top = left;
    auto right = std::numeric_limits<int>::min();
    auto bottom = right;
    double scale = 0;
    for (const auto& part : parts) {
        left = std::min(left, part.logical.x);
        top = std::min(top, part.logical.y);
        right = std::max(right, part.logical.x + part.logical.width);
        bottom = std::max(bottom, part.logical.y + part.logical.height);
        scale = std::max(scale, static_cast<double>(part.place.width) / part.logical.width);
    }
    // By the largest scale, so that the pixels of each have room.
    Size size;
    for (auto& part : parts) {
        part.place.x = static_cast<int>(std::lround((part.logical.x - left) * scale));
        part.place.y = static_cast<int>(std::lround((part.logical.y - top) * scale));
        size.width = std::min(std::max(size.width, part.place.x + part.place.width), longestSide);
        size.height =
            std::min(std::max(size.height, part.place.y + part.place.height), longestSide);
    }
    if (parts == parts_)
        return false;
    parts_ = std::move(parts);
    // Without any output it is black until there is one.
    if (!parts_.empty()) {
        logical_ = {left, top, right - left, bottom - top};
        scale_ = scale;
        size_ = size;
    }
    pixels_.assign(static_cast<std::size_t>(size_.width) * static_cast<std::size_t>(size_.height),
                   0);
    return true;
}

std::vector<Rectangle> WlrootsPicture::capture() {
    const bool isAnother = arrange();
    if (!isWatched_)
        return {};
    const bool isWhole = isAnother || std::exchange(wantsAll_, false);
    if (isWhole) {
        for (auto& output : outputs_)
            output->ask(false);
        wayland_.wait(
            [this] {
                return std::none_of(outputs_.begin(), outputs_.end(), [](const auto& output) {
                    return output->copy() == WlrootsOutput::Copy::Coming;
                });
            },
            longestWait);
    }
    std::vector<Rectangle> changed;
    for (const auto& part : parts_) {
        auto* output = find(part.output);
        if (!output)
            continue;
        if (output->copy() == WlrootsOutput::Copy::Here)
            update(part, *output, changed);
        else if (output->copy() == WlrootsOutput::Copy::Failed)
            failed(part, *output, changed);
    }
    if (isWhole)
        return {{0, 0, size_.width, size_.height}};
    return changed;
}

void WlrootsPicture::update(const Part& part, WlrootsOutput& output,
                            std::vector<Rectangle>& changed) {
    const auto reader = output.reader();
    if (!reader || output.transform() != part.transform)
        return failed(part, output, changed);
    for (const auto& damage : output.damage()) {
        // Whole tiles, so that parts compare with what was compared before.
        Rectangle band = cut(damage, {part.place.width, part.place.height});
        const int end = std::min((band.x + band.width + 63) / 64 * 64, part.place.width);
        band.x = band.x / 64 * 64;
        band =
            cut({part.place.x + band.x, part.place.y + band.y, end - band.x, band.height}, size_);
        const Point from{band.x - part.place.x, band.y - part.place.y};
        updateTiles(
            pixels_, size_, band,
            [&](int y, std::uint32_t* to) {
                reader->read({from.x, from.y + y}, band.width, to);
            },
            changed);
    }
    output.ask(true);
}

/// What is not shown any more is not left standing.
void WlrootsPicture::failed(const Part& part, WlrootsOutput& output,
                            std::vector<Rectangle>& changed) {
    updateTiles(
        pixels_, size_, cut(part.place, size_),
        [&](int, std::uint32_t* to) { std::fill_n(to, cut(part.place, size_).width, 0U); },
        changed);
    output.takeBack();
    const itimerspec soon{{}, pause};
    ::timerfd_settime(again_.get(), 0, &soon, nullptr);
}

void WlrootsPicture::tryAgain() {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(again_.get(), &count, sizeof count);
    for (auto& output : outputs_) {
        if (isWatched_ && output->copy() == WlrootsOutput::Copy::None)
            output->ask(false);
    }
}

WlrootsPicture::Aim WlrootsPicture::aim(Point point) const {
    const Size all{logical_.width, logical_.height};
    const Part* nearest = nullptr;
    int least = std::numeric_limits<int>::max();
    for (const auto& part : parts_) {
        const int distance = beyond(point.x, part.place.x, part.place.width) +
                             beyond(point.y, part.place.y, part.place.height);
        if (distance < least) {
            least = distance;
            nearest = &part;
        }
    }
    if (!nearest)
        return {0, 0, {}};
    const auto& place = nearest->place;
    const auto& logical = nearest->logical;
    // The middle of the pixel, which is in it whatever the scale.
    const double x = std::clamp(point.x - place.x, 0, place.width - 1) + 0.5;
    const double y = std::clamp(point.y - place.y, 0, place.height - 1) + 0.5;
    return {logical.x - logical_.x + x * logical.width / place.width,
            logical.y - logical_.y + y * logical.height / place.height, all};
}

}  // namespace zelvo::server
