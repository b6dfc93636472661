#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "platform/linux/base/FileDescriptor.h"
#include "sealing/SealedLine.h"

namespace zelvo::bench {

/// Brings a viewer that speaks plain RFB to a host through the sealed channel of a link, on a
/// thread of its own, and counts what sealing takes there.
class SealedTunnel {
  public:
    SealedTunnel(const char* address, int port, const sealing::ShareLink& link);
    ~SealedTunnel();

    /// Where it listens on loopback for its viewer; 0 where the host cannot be reached.
    int port() const { return port_; }
    /// Processor time that went into the channel since it was asked last, in ms.
    double takeCost() { return static_cast<double>(cost_.exchange(0)) / 1e6; }

  private:
    void run();
    template <typename Work>
    void count(Work work);

    platform::FileDescriptor host_;
    platform::FileDescriptor listener_;
    platform::FileDescriptor end_;
    sealing::SealedLine line_;
    int port_ = 0;
    std::atomic<std::int64_t> cost_ = 0;
    std::thread thread_;
};

}  // namespace zelvo::bench
