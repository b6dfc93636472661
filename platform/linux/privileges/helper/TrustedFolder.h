#pragma once

#include <optional>
#include <string>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

/// A folder in which nobody but root can have put anything, nor can exchange it: it and every
/// folder above it belong to root, may be written by root alone, and are no links.
class TrustedFolder {
  public:
    explicit TrustedFolder(std::string path);

    /// Whether this file and every shell script beside it, which it may read in, are root's alone.
    /// Nothing, or the reason why not.
    std::optional<std::string> complaintAboutScript(const std::string& name) const;
    std::string pathOf(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::optional<std::string> complaintAboutFile(const std::string& name) const;

    const std::string path_;
    FileDescriptor folder_;
    std::string complaint_;
};

}  // namespace zelvo::platform
