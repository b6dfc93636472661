#include "platform/linux/names/HostnamedDynamicStore.h"

#include <algorithm>
#include <utility>

#include "platform/linux/names/HostNames.h"

namespace zelvo::platform {

namespace {

constexpr const char* computerNameKey = "Setup:/System";
constexpr const char* hostNamesKey = "Setup:/Network/HostNames";

class Connection : public DynamicStoreConnection {
  public:
    Connection(MainQueue& mainQueue, std::shared_ptr<HostNames> names,
               DynamicStore::Callback callback)
        : mainQueue_(mainQueue),
          names_(std::move(names)),
          callback_(std::make_shared<DynamicStore::Callback>(std::move(callback))) {}

    std::optional<std::string> copyComputerName() override { return names_->computerName(); }
    std::optional<std::string> copyLocalHostName() override { return names_->localHostName(); }
    void setNotificationKeys(const std::vector<std::string>& keys) override { keys_ = keys; }
    void setMainQueue() override {
        subscription_ = names_->changes().subscribe(
            [this](const HostNames::Changed& changed) { notify(changed); });
    }

  private:
    bool asksFor(const char* key) const {
        return std::find(keys_.begin(), keys_.end(), key) != keys_.end();
    }

    void notify(const HostNames::Changed& changed) {
        std::vector<std::string> keys;
        if (changed.computerName && asksFor(computerNameKey))
            keys.emplace_back(computerNameKey);
        if (changed.localHostName && asksFor(hostNamesKey))
            keys.emplace_back(hostNamesKey);
        if (keys.empty())
            return;
        mainQueue_.async([weak = std::weak_ptr(callback_), keys = std::move(keys)] {
            if (auto callback = weak.lock())
                (*callback)(keys);
        });
    }

    MainQueue& mainQueue_;
    std::shared_ptr<HostNames> names_;
    std::shared_ptr<DynamicStore::Callback> callback_;
    std::vector<std::string> keys_;
    Subscription subscription_;
};

}  // namespace

HostnamedDynamicStore::HostnamedDynamicStore(MainQueue& mainQueue, Log& log)
    : HostnamedDynamicStore(mainQueue, log, Options{}) {}

HostnamedDynamicStore::HostnamedDynamicStore(MainQueue& mainQueue, Log& log, Options options)
    : mainQueue_(mainQueue),
      names_(std::make_shared<HostNames>(
          HostNames::Options{std::move(options.busAddress), std::move(options.root)}, log)) {
    mainQueue_.async([weak = std::weak_ptr(names_)] {
        if (auto names = weak.lock())
            names->watch();
    });
}

HostnamedDynamicStore::~HostnamedDynamicStore() = default;

std::unique_ptr<DynamicStoreConnection> HostnamedDynamicStore::create(const std::string&,
                                                                      Callback callback) {
    return std::make_unique<Connection>(mainQueue_, names_, std::move(callback));
}

std::string HostnamedDynamicStore::keyCreateComputerName() const {
    return computerNameKey;
}

std::string HostnamedDynamicStore::keyCreateHostNames() const {
    return hostNamesKey;
}

std::optional<std::string> HostnamedDynamicStore::localizedHostName() const {
    return names_->kernelName();
}

}  // namespace zelvo::platform
