#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/nat/base/HttpResponseReader.h"
#include "platform/linux/nat/upnp/UpnpDescription.h"

namespace zelvo::platform {

using SoapArguments = std::vector<std::pair<std::string_view, std::string>>;

/// A whole HTTP request that gives a gateway one order. Values travel as they stand.
std::string soapRequest(const UpnpService& service, std::string_view action,
                        const SoapArguments& arguments);
/// How the orders name an entry of the gateway's table.
SoapArguments soapEntryName(std::uint16_t externalPort, bool tcp);
/// True for the error codes that say that there is no such entry.
bool isAbsent(int errorCode);
/// A whole HTTP request for a page.
std::string httpGet(const UpnpUrl& url);

/// What a gateway answers to an order.
class SoapAnswer {
  public:
    explicit SoapAnswer(const HttpResponse& response);

    bool isSuccess() const { return errorCode_ == 0; }
    /// The gateway's error code, or -1 for an answer that is none.
    int errorCode() const { return errorCode_; }
    /// Empty where there is none.
    std::string value(std::string_view name) const;
    /// Host byte order; 0 where there is none. Some gateways put blanks around it.
    std::uint32_t address(std::string_view name) const;

  private:
    int errorCode_ = -1;
    std::vector<std::pair<std::string, std::string>> values_;
};

}  // namespace zelvo::platform
