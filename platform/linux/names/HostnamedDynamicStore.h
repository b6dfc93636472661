#pragma once

#include <memory>
#include <string>

#include "platform/DynamicStore.h"
#include "platform/MainQueue.h"

namespace zelvo::platform {

class HostNames;
class Log;

/// The host's names from systemd-hostnamed and the kernel.
class HostnamedDynamicStore : public DynamicStore {
  public:
    struct Options {
        /// Address of the message bus; empty for the system bus.
        std::string busAddress;
        /// Stands before "/etc".
        std::string root;
    };

    /// Both outlive this object. Watching begins at the queue's next turn, when the application
    /// object has to be there.
    HostnamedDynamicStore(MainQueue& mainQueue, Log& log);
    HostnamedDynamicStore(MainQueue& mainQueue, Log& log, Options options);
    ~HostnamedDynamicStore() override;

    std::unique_ptr<DynamicStoreConnection> create(const std::string& name,
                                                   Callback callback) override;
    std::string keyCreateComputerName() const override;
    std::string keyCreateHostNames() const override;
    /// The kernel's name.
    std::optional<std::string> localizedHostName() const override;

  private:
    MainQueue& mainQueue_;
    std::shared_ptr<HostNames> names_;
};

}  // namespace zelvo::platform
