#pragma once

#include <chrono>
#include <memory>
#include <thread>

#include "opener/channel/HostLine.h"
#include "platform/MainQueue.h"

namespace zelvo::opener {

/// The real line: TCP, and a thread of its own that seals and opens, so that what the window is
/// busy with keeps no key waiting.
class SealedConnection final : public HostLine {
  public:
    struct Patience {
        /// For the connection to come about.
        std::chrono::milliseconds connecting = std::chrono::seconds(10);
        /// From then on until the host has proven itself.
        std::chrono::milliseconds proving = std::chrono::seconds(10);
        /// For the goodbye to go out; so long the destruction takes at most.
        std::chrono::milliseconds leaving = std::chrono::milliseconds(300);
    };

    /// The queue outlives this object.
    SealedConnection(platform::MainQueue& mainQueue, const Target& target, Listener listener)
        : SealedConnection(mainQueue, target, std::move(listener), Patience()) {}
    SealedConnection(platform::MainQueue& mainQueue, const Target& target, Listener listener,
                     const Patience& patience);
    SealedConnection(const SealedConnection&) = delete;
    SealedConnection& operator=(const SealedConnection&) = delete;
    ~SealedConnection() override;

  private:
    /// Gone with this object: what is queued then finds nobody.
    std::shared_ptr<Listener> listener_;
    platform::FileDescriptor leave_;
    std::thread thread_;
};

}  // namespace zelvo::opener
