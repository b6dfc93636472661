#include "platform/linux/machine/InetAddressParser.h"

#include <arpa/inet.h>

namespace zelvo::platform {

bool InetAddressParser::isIPv4(const std::string& text) const {
    in_addr address;
    // inet_pton would stop at a NUL inside the text.
    return text.find('\0') == text.npos && ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

}  // namespace zelvo::platform
