#pragma once

#include <string>

#include "opener/facts/FactsSource.h"
#include "platform/linux/https/CurlUrlSession.h"

namespace zelvo::opener {

/// The sharing service over HTTPS, its certificate verified. Unless it is on this computer, it may
/// not send us into networks of ours (mayBeSentTo).
class SharingService final : public FactsSource {
  public:
    /// `origin` is "https://host" or "https://host:port"; `certificateFile` as in
    /// CurlUrlSession::Options. The queue outlives this object.
    SharingService(platform::MainQueue& mainQueue, std::string origin, std::string certificateFile);

    void ask(const std::string& identifier, std::function<void(FactsAnswer)> done) override;

  private:
    const std::string origin_;
    const bool maySendAnywhere_;
    platform::CurlUrlSession session_;
};

}  // namespace zelvo::opener
