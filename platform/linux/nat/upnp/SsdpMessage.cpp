#include "platform/linux/nat/upnp/SsdpMessage.h"

#include <algorithm>

#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

constexpr std::size_t LongestDatagram = 2048;
constexpr std::string_view AnswerLine = "HTTP/1.1 200";
constexpr std::string_view NotifyLine = "NOTIFY * HTTP/1.1";

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

bool isNamed(std::string_view name, std::string_view upperCase) {
    return std::equal(name.begin(), name.end(), upperCase.begin(), upperCase.end(),
                      [](char c, char expected) {
                          return (c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c) == expected;
                      });
}

}  // namespace

std::optional<SsdpMessage> SsdpMessage::parse(ByteView datagram) {
    if (datagram.size() > LongestDatagram) {
        return std::nullopt;
    }
    std::string_view text(reinterpret_cast<const char*>(datagram.data()), datagram.size());
    const std::string_view first = takeLine(text);
    SsdpMessage message;
    const bool notify = first == NotifyLine;
    if (!notify && first.substr(0, AnswerLine.size()) != AnswerLine) {
        return std::nullopt;
    }
    std::string_view notice;
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        const std::string_view name = trimmed(line.substr(0, colon));
        const std::string_view value = trimmed(line.substr(colon + 1));
        if (isNamed(name, "LOCATION")) {
            message.location = value;
        } else if (isNamed(name, "BOOTID.UPNP.ORG")) {
            message.bootId = value;
        } else if (isNamed(name, "NTS")) {
            notice = value;
        }
    }
    if (notify && notice == "ssdp:byebye") {
        message.kind = Kind::Farewell;
    } else if (notify && notice == "ssdp:alive") {
        message.kind = Kind::Alive;
    } else if (notify) {
        return std::nullopt;
    }
    return message;
}

Bytes SsdpMessage::search(std::string_view type, const Ipv4Endpoint& to) {
    const std::string text =
        "M-SEARCH * HTTP/1.1\r\nHOST: " + endpointText(to) + "\r\nMAN: \"ssdp:discover\"\r\n" +
        (to == SsdpGroup ? "MX: 2\r\n" : "") + "ST: " + std::string(type) + "\r\n\r\n";
    return Bytes(text.begin(), text.end());
}

}  // namespace zelvo::platform
