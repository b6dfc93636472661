#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "serving/Turns.h"

struct event;
struct event_base;
struct timeval;

namespace zelvo::serving {

/// An event base of the library with a thread of its own, and a way to it from other threads.
class LoopThread {
  public:
    enum class Descriptors { Stay, Move };

    /// Where descriptors stay with the loop until they are closed, the kernel is told of changes
    /// only when the loop waits again, which is cheaper.
    explicit LoopThread(Descriptors descriptors);
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;
    /// What has to do with the base has ended.
    ~LoopThread();

    event_base* base() const { return base_.get(); }
    /// On its thread.
    Turns& turns() { return turns_; }
    void start();
    /// Ends the loop in a while. On its thread.
    void endAfter(std::chrono::milliseconds span);
    /// Waits for the loop's end, and runs what was posted too late for it.
    void join();

    /// Whether the call is made on the loop's thread.
    bool isHere() const;
    /// Has the loop run it. Any thread.
    void post(std::function<void()> job);
    /// Many timers of one length cost no more than one.
    void startTimer(event& timer, std::chrono::milliseconds after);

  private:
    struct Releaser {
        void operator()(event_base* base) const;
        void operator()(event* event) const;
    };

    void runPosted();

    platform::FileDescriptor bell_;
    std::mutex mutex_;
    std::vector<std::function<void()>> posted_;
    std::unique_ptr<event_base, Releaser> base_;
    std::unique_ptr<event, Releaser> bellEvent_;
    std::map<std::chrono::milliseconds, const timeval*> timers_;
    Turns turns_;
    std::thread thread_;
};

}  // namespace zelvo::serving
