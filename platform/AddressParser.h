#pragma once

#include <string>

namespace zelvo::platform {

/// Text forms of network addresses. Any thread.
class AddressParser {
  public:
    virtual ~AddressParser() = default;
    /// Whether inet_pton(3) accepts the whole text for AF_INET.
    virtual bool isIPv4(const std::string& text) const = 0;
};

}  // namespace zelvo::platform
