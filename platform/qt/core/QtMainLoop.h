#pragma once

#include <QObject>
#include <QTimer>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/MainQueue.h"
#include "platform/RunLoop.h"

namespace zelvo::platform {

/// The main thread's loop on QtCore alone, so that it also runs without a display. Constructed on
/// the main thread while a QCoreApplication exists, and outlived by it. Outlives its timers.
class QtMainLoop final : public MainQueue, public RunLoop {
  public:
    /// `told` gets a line about whatever held the loop up for longer than it should.
    explicit QtMainLoop(std::function<void(const std::string&)> told = {});
    ~QtMainLoop() override;
    QtMainLoop(const QtMainLoop&) = delete;
    QtMainLoop& operator=(const QtMainLoop&) = delete;

    /// Runs until QCoreApplication::exit, then closes the queue. The exit status.
    int run();
    /// Destroys the jobs that wait, unrun; later ones are dropped. Main thread only.
    void close();

    void async(std::function<void()> job) override;
    bool isOpen() const override;

    std::unique_ptr<Timer> scheduleTimer(std::chrono::milliseconds interval,
                                         std::function<void(Timer&)> tick) override;
    std::unique_ptr<Perform> performAfterDelay(std::chrono::milliseconds delay,
                                               std::function<void()> call) override;
    std::unique_ptr<Perform> performOnNextTurn(std::function<void()> call) override;

    /// While something is expected any moment, and for 5 s after, turns come at most 20 ms apart,
    /// else 100 ms. Main thread only.
    void hurry(bool hurries);
    /// Takes the turn that calls wait for, if any do, at once: who decides something now decides it
    /// by what they find. Nothing inside a turn. Main thread only.
    void takeTurnNow();

    /// While one of these lives a menu is open: what belongs to the default mode waits. Main thread
    /// only.
    class [[nodiscard]] Tracking {
      public:
        explicit Tracking(QtMainLoop& loop) : loop_(loop) { ++loop_.trackings_; }
        ~Tracking() { loop_.endTracking(); }
        Tracking(const Tracking&) = delete;
        Tracking& operator=(const Tracking&) = delete;

      private:
        QtMainLoop& loop_;
    };

  private:
    using Call = std::function<void()>;
    class RepeatingTimer;
    class DelayedPerform;
    class TurnPerform;

    void runOneJob();
    void runInDefaultMode(std::shared_ptr<Call> call);
    void endTracking();
    void runWaiting();
    void scheduleTurn();
    void runTurn();

    void tellIfLong(const char* what, std::chrono::steady_clock::time_point begin) const;

    QObject receiver_;
    std::function<void(const std::string&)> told_;

    mutable std::mutex mutex_;
    std::deque<std::function<void()>> jobs_;
    bool open_ = true;

    int trackings_ = 0;
    std::vector<std::weak_ptr<Call>> waiting_;

    QTimer turnTimer_;
    bool inTurn_ = false;
    bool hurries_ = false;
    std::chrono::steady_clock::time_point hastyUntil_{};
    std::chrono::steady_clock::time_point nextTurn_{};
    std::vector<std::weak_ptr<Call>> turnCalls_;
};

}  // namespace zelvo::platform
