#include "platform/linux/nat/upnp/SoapMessage.h"

#include <arpa/inet.h>
#include <miniupnpc/upnpreplyparse.h>

#include <charconv>
#include <sstream>

namespace zelvo::platform {

namespace {

std::string requestHead(std::string_view method, const UpnpUrl& url) {
    return std::string(method) + " " + url.path + " HTTP/1.1\r\nHost: " + endpointText(url.server) +
           "\r\nUser-Agent: Zelvo\r\nConnection: close\r\n";
}

}  // namespace

std::string soapRequest(const UpnpService& service, std::string_view action,
                        const SoapArguments& arguments) {
    std::string body =
        "<?xml version=\"1.0\"?>\r\n"
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
        "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body><u:" +
        std::string(action) + " xmlns:u=\"" + service.type + "\">";
    for (const auto& [name, value] : arguments) {
        body += "<" + std::string(name) + ">" + value + "</" + std::string(name) + ">";
    }
    body += "</u:" + std::string(action) + "></s:Body></s:Envelope>\r\n";
    return requestHead("POST", service.control) +
           "Content-Type: text/xml; charset=\"utf-8\"\r\nSOAPAction: \"" + service.type + "#" +
           std::string(action) + "\"\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

SoapArguments soapEntryName(std::uint16_t externalPort, bool tcp) {
    return {{"NewRemoteHost", ""},
            {"NewExternalPort", std::to_string(externalPort)},
            {"NewProtocol", tcp ? "TCP" : "UDP"}};
}

bool isAbsent(int errorCode) {
    // Of WANIPConnection:1 and :2: no such index, no such entry.
    return errorCode == 713 || errorCode == 714;
}

std::string httpGet(const UpnpUrl& url) {
    return requestHead("GET", url) + "\r\n";
}

SoapAnswer::SoapAnswer(const HttpResponse& response) {
    NameValueParserData data{};
    ParseNameValue(response.body.c_str(), static_cast<int>(response.body.size()), &data);
    for (const NameValue* value = data.l_head; value; value = value->l_next) {
        values_.emplace_back(value->name, value->value);
    }
    ClearNameValueList(&data);
    const std::string code = value("errorCode");
    if (response.status == 200 && code.empty()) {
        errorCode_ = 0;
    } else {
        int parsed = 0;
        std::from_chars(code.data(), code.data() + code.size(), parsed);
        errorCode_ = parsed > 0 ? parsed : -1;
    }
}

std::string SoapAnswer::value(std::string_view name) const {
    for (const auto& [key, value] : values_) {
        if (key == name) {
            return value;
        }
    }
    return {};
}

std::uint32_t SoapAnswer::address(std::string_view name) const {
    std::istringstream words(value(name));
    std::string text;
    in_addr address{};
    words >> text;
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ? ntohl(address.s_addr) : 0;
}

}  // namespace zelvo::platform
