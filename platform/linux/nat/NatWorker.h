#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/NatEngine.h"

namespace zelvo::platform {

/// The thread that talks with the router.
class NatWorker {
  public:
    NatWorker(Log& log, const NatEngine::Options& options);
    /// Withdraws what is still mapped, for one second at most, and joins.
    ~NatWorker();

    /// False when the system would not let it start.
    bool isRunning() const { return thread_.joinable(); }
    /// `reply` is called on the worker.
    void open(int id, const PortWish& wish, PortPairMapping::Reply reply);
    void close(int id);

  private:
    using Job = std::function<void(NatEngine&)>;

    void post(Job job);
    void run(const NatEngine::Options& options);
    std::vector<Job> takeJobs();

    Log& log_;
    FileDescriptor wake_;
    std::mutex mutex_;
    std::vector<Job> jobs_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace zelvo::platform
