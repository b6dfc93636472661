#pragma once

#include <QImage>
#include <QObject>
#include <QPoint>
#include <QRegion>
#include <QSize>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "opener/viewer/Decoder.h"
#include "opener/viewer/LineQuality.h"
#include "opener/viewer/RfbFilter.h"
#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::opener {

/// A host's screen over a socket on which both speak RFB without security, on a thread of its own.
/// Whatever the host does, this ends by `ended` or by being destroyed, which waits for nobody. The
/// signals come from that thread; everything else is for the thread that made it.
class HostConnection : public QObject, private HostWords {
    Q_OBJECT

  public:
    enum class End : std::uint8_t {
        Closed,    ///< by the host
        Nonsense,  ///< what it says is no RFB, or not such as was asked for
        Silence,   ///< in the middle of something
    };
    Q_ENUM(End)

    /// A host that begins something goes on with it within this time.
    static constexpr std::chrono::seconds patience{30};

    explicit HostConnection(platform::FileDescriptor socket,
                            std::chrono::milliseconds patience = HostConnection::patience);
    HostConnection(const HostConnection&) = delete;
    HostConnection& operator=(const HostConnection&) = delete;
    ~HostConnection() override;

    /// Once, after those who are to hear its signals have said so.
    void begin();

    void key(std::uint32_t keysym, bool isDown);
    void pointer(int x, int y, std::uint8_t buttons);
    /// Hands the host a new text, at most RfbFilter::longestText bytes.
    void setClipboard(const std::string& utf8);
    /// Without it the host is neither asked for its clipboard nor told ours.
    void setSharesClipboard(bool shares);

    /// What has changed since the last call.
    QRegion takeDamage();
    /// Calls with the picture, which stays as it is meanwhile. Keep it short: the host waits.
    void look(const std::function<void(const QImage& picture)>& use);

  signals:
    /// There is damage; once until it is taken.
    void changed();
    /// Also when the size is known at first.
    void resized(QSize size);
    void cursorChanged(const QImage& shape, QPoint hotSpot);
    void pointerMoved(QPoint position);
    void clipboardCame(const QString& text);
    /// Last.
    void ended(zelvo::opener::HostConnection::End end);

  private:
    using Clock = std::chrono::steady_clock;

    // HostWords
    void reply(std::string_view bytes) override;
    void opened(PictureSize size) override;
    void updateBegins() override;
    void sizeChanges(PictureSize size) override;
    void inexact(PicturePart part) override;
    void clipboard(const std::string& text) override;
    void extendedClipboard(const std::string& message) override;
    void cursor(PictureSize size, PicturePoint hotSpot, const std::vector<std::uint32_t>& pixels,
                std::string_view mask) override;
    void pointer(PicturePoint position) override { emit pointerMoved({position.x, position.y}); }

    void run();
    End converse();
    bool playUpdate();
    void judgeQuality(Clock::duration took);
    void sharpen();
    bool receive(std::string& to);
    bool waitForHost();
    /// Unless so many messages wait already.
    void say(std::string message, std::size_t most);
    bool sendSome();
    void drawn(PicturePart part);
    void tellOfDamage();

    const platform::FileDescriptor socket_;
    const platform::FileDescriptor wake_;
    const std::chrono::milliseconds patience_;

    // The thread's own.
    RfbFilter filter_{*this};
    std::unique_ptr<Decoder> decoder_;
    std::string toPlay_;
    PictureSize size_;
    LineQuality quality_;
    std::size_t updateBytes_ = 0;
    /// What is not as it is there, what of it has been asked for exactly and has not come, and when
    /// the next part is.
    QRegion inexact_;
    QRegion awaited_;
    Clock::time_point sharpenAt_ = Clock::time_point::max();
    /// The host has been told to be exact until all is sharp, or something else happens.
    bool isSharpening_ = false;
    bool isInterrupted_ = false;
    End end_ = End::Closed;
    std::string sending_;

    /// The picture's.
    std::mutex pictureMutex_;
    std::unique_lock<std::mutex> drawing_{pictureMutex_, std::defer_lock};

    std::mutex mutex_;
    std::deque<std::string> toSay_;
    /// What the host holds down once it has heard all of it.
    std::set<std::uint32_t> keysDown_;
    std::uint8_t buttonsDown_ = 0;
    /// With the last word of the pointer.
    bool onlyMoved_ = false;
    QRegion damage_;
    bool damageIsTold_ = false;
    std::string ownText_;
    bool hostTakesUtf8_ = false;
    std::atomic<bool> sharesClipboard_ = false;
    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

}  // namespace zelvo::opener
