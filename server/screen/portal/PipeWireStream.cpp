#include "server/screen/portal/PipeWireStream.h"

#include <spa/param/buffers.h>
#include <spa/pod/builder.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t mostFrames = 60;  // a second
// The frame that is being read, the newest, and one for the compositor to draw the next in.
constexpr int leastBuffers = 3;
// For as many frames may either side be busy: a compositor that has run out of buffers stands still
// for good.
constexpr int usualBuffers = 8;
// Than the quickest, which compositors need to draw it: less than the time between two.
constexpr auto mostDelay = 12ms;
// After a late one; those that are in time come sooner where there are more.
constexpr auto untilStill = 200ms;
// Compositors draw a frame as soon as the stream runs, which may be before it does here: then it is
// lost, and a desktop that is still draws no other.
constexpr auto longestStart = 1s;
constexpr int quickAttempts = 3;
constexpr int mostDoublings = 6;

/// The library's macros build pods by C's compound literals, which are no part of C++.
template <typename... Values>
const spa_pod* object(spa_pod_builder& builder, std::uint32_t type, std::uint32_t id,
                      Values... values) {
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, type, id);
    spa_pod_builder_add(&builder, values..., 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

const spa_pod* wantedFormat(spa_pod_builder& builder) {
    const spa_rectangle usual{1920, 1080};
    const spa_rectangle least{1, 1};
    const spa_rectangle most{longestFrameSide, longestFrameSide};
    const spa_fraction anyRate{0, 1};
    const spa_fraction highest{mostFrames, 1};
    return object(
        builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
        SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx,
                               SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA),
        SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&usual, &least, &most),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&anyRate), SPA_FORMAT_VIDEO_maxFramerate,
        SPA_POD_CHOICE_RANGE_Fraction(&highest, &anyRate, &highest));
}

/// Only memory that we can read: what lies in a graphics card we would have to have copied.
const spa_pod* wantedBuffers(spa_pod_builder& builder) {
    return object(
        builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
        SPA_POD_CHOICE_RANGE_Int(usualBuffers, leastBuffers, 16), SPA_PARAM_BUFFERS_dataType,
        SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd)));
}

constexpr int cursorMetaSize(int side) {
    return static_cast<int>(sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap)) + side * side * 4;
}

const spa_pod* wantedHeader(spa_pod_builder& builder) {
    return object(builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                  SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size,
                  SPA_POD_Int(static_cast<int>(sizeof(spa_meta_header))));
}

const spa_pod* wantedCursor(spa_pod_builder& builder) {
    return object(builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                  SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
                  SPA_POD_CHOICE_RANGE_Int(cursorMetaSize(64), cursorMetaSize(1),
                                           cursorMetaSize(longestCursorSide)));
}

}  // namespace

const pw_stream_events PipeWireStream::events_ = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char*) {
        static_cast<PipeWireStream*>(self)->stateChanged(state);
    };
    events.param_changed = [](void* self, std::uint32_t id, const spa_pod* parameter) {
        if (id == SPA_PARAM_Format && parameter)
            static_cast<PipeWireStream*>(self)->formatChanged(parameter);
    };
    events.add_buffer = [](void* self, pw_buffer*) {
        auto& stream = *static_cast<PipeWireStream*>(self);
        stream.format_ = stream.nextFormat_;
    };
    events.remove_buffer = [](void* self, pw_buffer* buffer) {
        static_cast<PipeWireStream*>(self)->removeBuffer(buffer);
    };
    events.process = [](void* self) { static_cast<PipeWireStream*>(self)->takeBuffers(); };
    return events;
}();

PipeWireStream::PipeWireStream(pw_core* core, std::uint32_t node, Handlers handlers)
    : handlers_(std::move(handlers)),
      core_(core),
      node_(node),
      loop_(pw_context_get_main_loop(pw_core_get_context(core))),
      news_(pw_loop_add_event(
          loop_, [](void* self, std::uint64_t) { static_cast<PipeWireStream*>(self)->tell(); },
          this)),
      timer_(pw_loop_add_timer(
          loop_, [](void* self, std::uint64_t) { static_cast<PipeWireStream*>(self)->openAnew(); },
          this)) {
    open();
}

PipeWireStream::~PipeWireStream() {
    close();
    pw_loop_destroy_source(loop_, news_);
    pw_loop_destroy_source(loop_, timer_);
}

void PipeWireStream::open() {
    stream_ = pw_stream_new(core_, "Zelvo",
                            pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                              "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    pw_stream_add_listener(stream_, &listener_, &events_, this);
    std::array<std::byte, 1024> memory;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    const spa_pod* format = wantedFormat(builder);
    // A buffer finds its way back only with the next frame, and one with each: were they taken on
    // this thread, which may be busy for some frames, the compositor would run out of buffers, and
    // without a frame they would never come back.
    pw_stream_connect(
        stream_, PW_DIRECTION_INPUT, node_,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                     PW_STREAM_FLAG_DONT_RECONNECT | PW_STREAM_FLAG_RT_PROCESS),
        &format, 1);
    openAnewAfter(longestStart);
}

void PipeWireStream::close() {
    isClosing_ = true;
    // The other thread may be about to call the listener, which goes when it has left.
    pw_stream_destroy(stream_);
    isClosing_ = false;
    shown_ = newest_ = nullptr;
    isFirst_ = true;
}

void PipeWireStream::stateChanged(pw_stream_state state) {
    if (isClosing_)
        return;
    if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED)
        handlers_.ended();
}

void PipeWireStream::formatChanged(const spa_pod* format) {
    if (spa_format_video_raw_parse(format, &nextFormat_) < 0)
        return handlers_.ended();
    std::array<std::byte, 1024> memory;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    std::array parameters{wantedBuffers(builder), wantedHeader(builder), wantedCursor(builder)};
    pw_stream_update_params(stream_, parameters.data(), parameters.size());
}

void PipeWireStream::setActive(bool isActive) {
    letGo();
    {
        // What comes on the way to a rest is none of the frames after it.
        const std::lock_guard lock(mutex_);
        giveBack(newest_);
    }
    isActive_ = isActive;
    attempts_ = 0;
    openAnewAfter(isActive ? longestStart : 0ms);
    pw_stream_set_active(stream_, isActive);
}

void PipeWireStream::removeBuffer(pw_buffer* buffer) {
    const std::lock_guard lock(mutex_);
    for (auto* held : {&shown_, &newest_}) {
        if (*held == buffer)
            *held = nullptr;
    }
}

void PipeWireStream::takeBuffers() {
    const std::lock_guard lock(mutex_);
    while (auto* buffer = pw_stream_dequeue_buffer(stream_)) {
        if (auto pointer = pointerIn(*buffer->buffer)) {
            newPosition_ = pointer->position;
            if (pointer->cursor)
                newCursor_ = std::move(pointer->cursor);
        }
        if (hasPicture(*buffer->buffer)) {
            readAge(*buffer->buffer);
            std::swap(buffer, newest_);
        }
        giveBack(buffer);
    }
    pw_loop_signal_event(loop_, news_);
}

/// While a frame waits for us to take it, the one after it stays behind in the compositor, until
/// yet another follows. From then on all are one behind, and what was drawn before the desktop fell
/// still does not come.
void PipeWireStream::readAge(const spa_buffer& buffer) {
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
    if (!header || header->pts <= 0) {
        newIsLate_ = false;
        return;
    }
    const auto age = std::chrono::steady_clock::now().time_since_epoch() - Age(header->pts);
    leastAge_ = std::min<Age>(leastAge_, age);
    newIsLate_ = age - leastAge_ > mostDelay;
}

/// Never, after no time. It takes the longer, the oftener it was in vain, but is not given up: on a
/// machine that is busy the desktop would stay as it was.
void PipeWireStream::openAnewAfter(std::chrono::milliseconds time) {
    time *= 1 << std::clamp(attempts_ - quickAttempts, 0, mostDoublings);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    timespec value{seconds.count(), static_cast<long>(Age(time - seconds).count())};
    pw_loop_update_timer(loop_, timer_, &value, nullptr, false);
}

bool PipeWireStream::holdsFrame() {
    const std::lock_guard lock(mutex_);
    return shown_ || newest_;
}

void PipeWireStream::openAnew() {
    // Viewers who take their time have not got it yet, and no other may follow.
    if (holdsFrame())
        return openAnewAfter(untilStill);
    ++attempts_;
    close();
    open();
}

void PipeWireStream::tell() {
    std::unique_lock lock(mutex_);
    const auto isLate = std::exchange(newIsLate_, std::nullopt);
    const auto cursor = std::exchange(newCursor_, std::nullopt);
    const auto position = std::exchange(newPosition_, std::nullopt);
    lock.unlock();
    if (cursor)
        handlers_.cursorChanged(*cursor);
    if (position)
        handlers_.cursorMoved(*position);
    if (!isLate)
        return;
    // On a machine that is busy for long the first is late each time.
    if (!std::exchange(isFirst_, false) || !*isLate)
        attempts_ = 0;
    if (isActive_)
        openAnewAfter(*isLate ? untilStill : 0ms);
    handlers_.frameCame();
}

void PipeWireStream::giveBack(pw_buffer*& buffer) {
    if (buffer)
        pw_stream_queue_buffer(stream_, std::exchange(buffer, nullptr));
}

void PipeWireStream::letGo() {
    const std::lock_guard lock(mutex_);
    giveBack(shown_);
}

std::optional<Frame> PipeWireStream::frame() {
    {
        const std::lock_guard lock(mutex_);
        if (newest_) {
            giveBack(shown_);
            std::swap(shown_, newest_);
        }
    }
    if (!shown_)
        return std::nullopt;
    return pictureIn(*shown_->buffer, format_);
}

}  // namespace zelvo::server
