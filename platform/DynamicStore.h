#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zelvo::platform {

/// One connection to the store of the host's names. Destroying it ends its notices. Main thread
/// only.
class DynamicStoreConnection {
  public:
    virtual ~DynamicStoreConnection() = default;

    /// The user-visible name of the computer.
    virtual std::optional<std::string> copyComputerName() = 0;
    /// The name on the local link, without its domain.
    virtual std::optional<std::string> copyLocalHostName() = 0;

    /// Asks for a notice whenever one of exactly these keys changes.
    virtual void setNotificationKeys(const std::vector<std::string>& keys) = 0;
    /// Delivers notices on the main queue from now on.
    virtual void setMainQueue() = 0;
};

/// Main thread only.
class DynamicStore {
  public:
    using Callback = std::function<void(const std::vector<std::string>& changedKeys)>;

    virtual ~DynamicStore() = default;

    /// Opens a connection; null when that fails. `name` only labels it.
    virtual std::unique_ptr<DynamicStoreConnection> create(const std::string& name,
                                                           Callback callback) = 0;

    /// The key whose change announces a new computer name.
    virtual std::string keyCreateComputerName() const = 0;
    /// The key whose change announces new host names.
    virtual std::string keyCreateHostNames() const = 0;

    /// The host's display name where the store has none.
    virtual std::optional<std::string> localizedHostName() const = 0;
};

}  // namespace zelvo::platform
