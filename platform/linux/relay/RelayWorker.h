#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/relay/RelayHost.h"

namespace zelvo::platform {

/// The thread of a RelayHost, which begins with the first registration. Main thread only.
class RelayWorker {
  public:
    /// What is told is told on the worker.
    RelayWorker(std::string certificateFile, RelayHost::Told told);
    RelayWorker(const RelayWorker&) = delete;
    RelayWorker& operator=(const RelayWorker&) = delete;
    /// Ends everything, once what the screen server said last has gone, for a second at most.
    ~RelayWorker();

    void enlist(int round, RelayHost::Place place);
    void resign(int round);
    void join(int viewer, FileDescriptor socket);

  private:
    using Job = std::function<void(RelayHost&)>;

    void post(Job job);
    void run();
    bool doJobs(RelayHost& host);

    const std::string certificateFile_;
    const RelayHost::Told told_;
    FileDescriptor wake_;
    std::mutex mutex_;
    std::vector<Job> jobs_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace zelvo::platform
