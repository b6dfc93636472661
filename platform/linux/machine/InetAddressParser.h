#pragma once

#include "platform/AddressParser.h"

namespace zelvo::platform {

class InetAddressParser : public AddressParser {
  public:
    bool isIPv4(const std::string& text) const override;
};

}  // namespace zelvo::platform
