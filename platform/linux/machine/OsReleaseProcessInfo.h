#pragma once

#include <string>

#include "platform/ProcessInfo.h"

namespace zelvo::platform {

/// VERSION_ID of os-release(5): "12" is 12.0.0, "22.04" is 22.4.0, "15.6 SP1" is 15.6.0. None where
/// it is missing or begins with no number, as on a rolling distribution.
class OsReleaseProcessInfo : public ProcessInfo {
  public:
    /// `root` stands before "/etc" and "/usr".
    explicit OsReleaseProcessInfo(std::string root = "");

    std::optional<OperatingSystemVersion> operatingSystemVersion() const override;

  private:
    const std::string root_;
};

}  // namespace zelvo::platform
