#pragma once

#include <functional>
#include <string>
#include <vector>

#include "doctor/Finding.h"
#include "platform/MainQueue.h"
#include "platform/linux/base/Environment.h"
#include "platform/linux/bundle/InstalledBundle.h"
#include "platform/linux/https/CurlUrlSession.h"
#include "platform/linux/property_lists/PlistReader.h"

namespace zelvo::doctor {

/// Looks at the machine as Zelvo would find it, and changes nothing: no port is mapped, no link
/// made, no setting written. The router is asked that the environment names, or the gateway. Main
/// thread only.
class Doctor {
  public:
    using Done = std::function<void(const std::vector<Finding>&)>;

    /// The queue outlives it. In English where that is wanted, otherwise in the user's language.
    Doctor(platform::MainQueue& queue, platform::Environment environment, bool inEnglish);

    /// Blocks for some seconds, and calls `done` once, later.
    void examine(Done done);

  private:
    void add(const std::string& key, Finding::Standing standing, const char* subject,
             const std::string& value = {});
    void lookAtSession();
    void lookAtPortal();
    void lookAtServer();
    void lookAtRouter();
    void lookAtClock();
    void lookAtCertificates();
    void askService();
    void serviceAnswered(const platform::UrlResult& result, const platform::ExchangeReport& report);
    void lookBehindRouter();
    void askForRelay();
    void askRelay(const std::string& place);

    const platform::Environment environment_;
    platform::PlistReader propertyLists_;
    platform::InstalledBundle bundle_;
    std::vector<Finding> findings_;
    Done done_;
    /// Of the router, host byte order; 0 where it does not tell.
    std::uint32_t externalAddress_ = 0;
    bool routerMaps_ = false;
    /// From where the service saw us come.
    std::string seenFrom_;
    // Last: what it is asked comes back here.
    platform::CurlUrlSession session_;
};

}  // namespace zelvo::doctor
