#include "opener/viewer/HostConnection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "opener/viewer/Requests.h"
#include "platform/linux/base/Debug.h"

namespace zelvo::opener {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t portion = 64 * 1024;
/// What waits to be said while the line takes nothing; only a pointer that moves makes that much.
constexpr std::size_t manyWaiting = 16;
/// Of what the user does; our own replies have room beyond that, so that the picture goes on.
constexpr std::size_t mostInput = 1024;
constexpr std::size_t mostWaiting = 2048;
/// A region of more parts than this costs more than the box around it.
constexpr int mostParts = 64;
/// A picture that has not changed for so long is looked at.
constexpr auto stillness = 500ms;
constexpr auto longStillness = 10s;
constexpr int largestPointer = 64;
/// Between its parts, for what else there is to show.
constexpr auto breath = 20ms;

std::chrono::nanoseconds workOfThisThread() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

HostConnection::HostConnection(platform::FileDescriptor socket, std::chrono::milliseconds patience)
    : socket_(std::move(socket)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      patience_(patience) {}

void HostConnection::begin() {
    thread_ = std::thread([this] { run(); });
}

HostConnection::~HostConnection() {
    isEnding_ = true;
    ::eventfd_write(wake_.get(), 1);
    if (thread_.joinable())
        thread_.join();
}

// Called by its owner.

void HostConnection::reply(std::string_view bytes) {
    say(std::string(bytes), mostWaiting);
}

void HostConnection::say(std::string message, std::size_t most) {
    {
        const std::lock_guard lock(mutex_);
        if (toSay_.size() < most)
            toSay_.push_back(std::move(message));
    }
    ::eventfd_write(wake_.get(), 1);
}

// Where there is no room, only what the host has been told, or will be, to hold down is let go.

void HostConnection::key(std::uint32_t keysym, bool isDown) {
    {
        const std::lock_guard lock(mutex_);
        const bool hasRoom = toSay_.size() < mostInput;
        const bool wasDown = !isDown && keysDown_.erase(keysym) > 0;
        if (!hasRoom && !wasDown)
            return;
        if (isDown)
            keysDown_.insert(keysym);
        toSay_.push_back(requests::key(keysym, isDown));
    }
    ::eventfd_write(wake_.get(), 1);
}

void HostConnection::pointer(int x, int y, std::uint8_t buttons) {
    {
        const std::lock_guard lock(mutex_);
        if (toSay_.size() >= mostInput)
            buttons &= buttonsDown_;
        const bool isMotion = buttons == buttonsDown_;
        // Of a pointer that moves, the last place counts where the line cannot follow; not so where
        // a button went down or up.
        if (isMotion && onlyMoved_ && toSay_.size() > manyWaiting &&
            requests::isPointer(toSay_.back()))
            toSay_.pop_back();
        if (isMotion && toSay_.size() >= mostInput)
            return;
        toSay_.push_back(requests::pointer(x, y, buttons));
        buttonsDown_ = buttons;
        onlyMoved_ = isMotion;
    }
    ::eventfd_write(wake_.get(), 1);
}

void HostConnection::setClipboard(const std::string& utf8) {
    if (!sharesClipboard_ || utf8.size() >= RfbFilter::longestText)
        return;
    bool inUtf8 = false;
    {
        const std::lock_guard lock(mutex_);
        ownText_ = utf8;
        inUtf8 = hostTakesUtf8_;
    }
    say(inUtf8 ? requests::clipboardText(utf8) : requests::latin1Clipboard(utf8), mostInput);
}

void HostConnection::setSharesClipboard(bool shares) {
    sharesClipboard_ = shares;
    if (shares)
        return;
    const std::lock_guard lock(mutex_);
    ownText_.clear();
}

QRegion HostConnection::takeDamage() {
    const std::lock_guard lock(mutex_);
    damageIsTold_ = false;
    return std::exchange(damage_, {});
}

void HostConnection::look(const std::function<void(const QImage&)>& use) {
    const std::lock_guard lock(pictureMutex_);
    if (!decoder_)
        return;
    const auto size = decoder_->size();
    use(QImage(reinterpret_cast<const uchar*>(decoder_->pixels().data()), size.width, size.height,
               QImage::Format_RGB32));
}

// The thread.

void HostConnection::run() {
    const auto end = converse();
    if (!isEnding_)
        emit ended(end);
}

HostConnection::End HostConnection::converse() {
    while (!toPlay_.empty() || receive(toPlay_)) {
        if (!toPlay_.empty() && !playUpdate())
            break;
    }
    return end_;
}

bool HostConnection::playUpdate() {
    const auto begin = Clock::now();
    const auto worked = workOfThisThread();
    drawing_.lock();
    const bool isDrawn = decoder_->play(toPlay_);
    drawing_.unlock();
    if (!isDrawn)
        return false;
    tellOfDamage();
    judgeQuality(Clock::now() - begin - (workOfThisThread() - worked));
    updateBytes_ = 0;
    return true;
}

void HostConnection::judgeQuality(Clock::duration took) {
    if (quality_.received(updateBytes_, took)) {
        const auto quality = quality_.level().quality;
        platform::debug("viewer",
                        "the line is good for " +
                            (quality ? "JPEG " + std::to_string(*quality) : "exact pictures"));
        if (!isSharpening_)
            reply(requests::encodings(quality_.level()));
    }
    if (!awaited_.isEmpty())
        return;
    if (isSharpening_ && (inexact_.isEmpty() || isInterrupted_)) {
        reply(requests::encodings(quality_.level()));
        isSharpening_ = false;
    }
    const auto box = inexact_.boundingRect();
    // Hosts that are told encodings send what is below the pointer again, as they are told.
    const bool isPointer = box.width() <= largestPointer && box.height() <= largestPointer;
    const auto wait = isSharpening_ ? breath : isPointer ? longStillness : stillness;
    sharpenAt_ = box.isEmpty() ? Clock::time_point::max() : Clock::now() + wait;
}

void HostConnection::sharpen() {
    sharpenAt_ = Clock::time_point::max();
    // At three bytes for a pixel.
    auto pixels = static_cast<int>(quality_.notInTheWay() / 3);
    QRegion next;
    for (const auto& part : inexact_) {
        const int rows = std::clamp(pixels / part.width(), next.isEmpty() ? 1 : 0, part.height());
        next += QRect(part.topLeft(), QSize(part.width(), rows));
        pixels -= part.width() * rows;
    }
    inexact_ -= next;
    awaited_ = next & QRect(0, 0, size_.width, size_.height);
    if (awaited_.isEmpty())
        return;
    if (!std::exchange(isSharpening_, true))
        reply(requests::encodings(LineQuality::exact));
    isInterrupted_ = false;
    for (const auto& part : awaited_)
        reply(requests::update({part.x(), part.y(), part.width(), part.height()}, false));
}

bool HostConnection::receive(std::string& to) {
    const bool isPlaying = drawing_.owns_lock();
    // Whoever paints meanwhile does not wait for the host.
    if (isPlaying)
        drawing_.unlock();
    const bool isReady = waitForHost();
    const bool hasMore = filter_.hasMore();
    std::string bytes(hasMore ? 0 : portion, '\0');
    const auto count =
        isReady && !hasMore ? ::recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT) : 0;
    if (isPlaying)
        drawing_.lock();
    if (!isReady)
        return false;
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return true;
    end_ = End::Closed;
    if (count <= 0 && !hasMore)
        return false;
    updateBytes_ += static_cast<std::size_t>(count);
    bytes.resize(static_cast<std::size_t>(count));
    // Whatever else goes wrong from here on is what the host has said.
    end_ = End::Nonsense;
    return filter_.receive(bytes, to);
}

bool HostConnection::waitForHost() {
    const bool isInside = filter_.isInside();
    const auto patient = Clock::now() + patience_;
    while (!isEnding_) {
        if (!isInside && Clock::now() >= sharpenAt_)
            sharpen();
        const bool wants = sendSome();
        if (filter_.hasMore())
            return true;
        const auto until = isInside ? patient : sharpenAt_;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (isInside && left <= 0ms) {
            end_ = End::Silence;
            return false;
        }
        pollfd polled[] = {{socket_.get(), static_cast<short>(POLLIN | (wants ? POLLOUT : 0)), 0},
                           {wake_.get(), POLLIN, 0}};
        ::poll(polled, 2, until == Clock::time_point::max() ? -1 : static_cast<int>(left.count()));
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
        if ((polled[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
            return true;
    }
    return false;
}

/// Whether more waits to be said.
bool HostConnection::sendSome() {
    for (;;) {
        if (sending_.empty()) {
            const std::lock_guard lock(mutex_);
            if (toSay_.empty())
                return false;
            sending_ = std::move(toSay_.front());
            toSay_.pop_front();
        }
        const auto count =
            ::send(socket_.get(), sending_.data(), sending_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR)
            return errno == EAGAIN;
        sending_.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}

void HostConnection::opened(PictureSize size) {
    {
        const std::lock_guard lock(pictureMutex_);
        decoder_ = std::make_unique<Decoder>(
            size, [this](std::string& bytes) { return receive(bytes); },
            [this](PicturePart part) { drawn(part); });
    }
    size_ = size;
    emit resized(QSize(size.width, size.height));
    reply(requests::pixelFormat());
    reply(requests::encodings(quality_.level()));
    reply(requests::update({0, 0, size.width, size.height}, false));
}

void HostConnection::updateBegins() {
    // While this one is on its way, the host may make the next.
    reply(requests::update({0, 0, size_.width, size_.height}, true));
}

void HostConnection::sizeChanges(PictureSize size) {
    size_ = size;
    // What was asked for may be nowhere now.
    awaited_ = {};
    emit resized(QSize(size.width, size.height));
}

void HostConnection::inexact(PicturePart part) {
    inexact_ += QRect(part.x, part.y, part.width, part.height);
    if (inexact_.rectCount() > mostParts)
        inexact_ = inexact_.boundingRect();
}

void HostConnection::clipboard(const std::string& text) {
    if (sharesClipboard_)
        emit clipboardCame(QString::fromLatin1(text.data(), static_cast<qsizetype>(text.size())));
}

void HostConnection::extendedClipboard(const std::string& message) {
    const auto news = requests::clipboardNews(message);
    if (news.tellsAbilities) {
        const std::lock_guard lock(mutex_);
        hostTakesUtf8_ = true;
    }
    if (news.tellsAbilities)
        reply(requests::clipboardAbilities());
    if (!sharesClipboard_)
        return;
    if (news.text)
        emit clipboardCame(QString::fromStdString(*news.text));
    else if (news.hasText)
        reply(requests::clipboardRequest());
    if (!news.wantsText)
        return;
    std::string text;
    {
        const std::lock_guard lock(mutex_);
        text = ownText_;
    }
    reply(requests::clipboardText(text));
}

void HostConnection::drawn(PicturePart part) {
    const QRect place(part.x, part.y, part.width, part.height);
    isInterrupted_ =
        isInterrupted_ || (place.width() > largestPointer && !awaited_.intersects(place));
    awaited_ -= place;
    const std::lock_guard lock(mutex_);
    damage_ += place;
    if (damage_.rectCount() > mostParts)
        damage_ = damage_.boundingRect();
}

void HostConnection::tellOfDamage() {
    {
        const std::lock_guard lock(mutex_);
        if (damageIsTold_ || damage_.isEmpty())
            return;
        damageIsTold_ = true;
    }
    emit changed();
}

void HostConnection::cursor(PictureSize size, PicturePoint hotSpot,
                            const std::vector<std::uint32_t>& pixels, std::string_view mask) {
    QImage shape(std::max(size.width, 1), std::max(size.height, 1), QImage::Format_ARGB32);
    shape.fill(Qt::transparent);
    const int bytesPerRow = (size.width + 7) / 8;
    for (int i = 0; i < static_cast<int>(pixels.size()); ++i) {
        const int x = i % size.width;
        const int y = i / size.width;
        const auto byte = static_cast<std::size_t>(y * bytesPerRow + x / 8);
        if ((static_cast<std::uint8_t>(mask[byte]) & 0x80U >> static_cast<unsigned>(x % 8)) != 0)
            shape.setPixel(x, y, 0xFF000000U | pixels[static_cast<std::size_t>(i)]);
    }
    emit cursorChanged(shape, {hotSpot.x, hotSpot.y});
}

}  // namespace zelvo::opener
