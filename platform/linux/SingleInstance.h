#pragma once

#include <string>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

/// One Zelvo for each user: two would share the kept link and the mappings' journal, and the first
/// to quit would take both back under the other. Holds locks that end with the process, however it
/// ends.
class SingleInstance {
  public:
    enum class Outcome {
        First,
        Second,  ///< another process of this user holds a lock
        Unsure,  ///< no lock can be had, so that nobody knows
    };

    /// `stateFolder`, where the journal lies, is made where it is missing. `runtimeFolder` is the
    /// user's for this login; it holds a lock of its own for each `configFolder`, where the kept
    /// link lies, which may be one that cannot be written. Each is empty for a user without one.
    SingleInstance(const std::string& stateFolder, const std::string& runtimeFolder,
                   const std::string& configFolder);

    Outcome outcome() const { return outcome_; }

  private:
    std::vector<FileDescriptor> locks_;
    Outcome outcome_ = Outcome::Unsure;
};

}  // namespace zelvo::platform
