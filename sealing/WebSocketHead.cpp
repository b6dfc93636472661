#include "sealing/WebSocketHead.h"

#include <algorithm>
#include <utility>

#include "sealing/Base64.h"
#include "sealing/HttpHead.h"
#include "sealing/Primitives.h"

namespace zelvo::sealing {

namespace {

using namespace std::string_view_literals;

constexpr auto endOfHead = "\r\n\r\n"sv;
constexpr auto requestLine = "GET / HTTP/1.1"sv;
constexpr auto greetingForm = "RFB 000.000\n"sv;
/// RFC 6455, section 1.3.
constexpr auto acceptSuffix = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"sv;

std::string acceptOf(std::string_view nonce) {
    return encodeBase64(sha1(std::string(nonce) + std::string(acceptSuffix)), Base64::Padded);
}

std::string withoutBody(std::string_view status) {
    return "HTTP/1.1 " + std::string(status) + "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
}

}  // namespace

void WebSocketHead::receive(std::string_view& bytes) {
    while (state_ == State::Reading && !bytes.empty()) {
        // Up to a line's end at a time, so that none of the frames' bytes is taken.
        const auto part = bytes.substr(0, bytes.find('\n')).size() + 1;
        const auto taken = bytes.substr(0, std::min({part, bytes.size(), longest - input_.size()}));
        input_ += taken;
        bytes.remove_prefix(taken.size());
        if (!mayBegin(input_)) {
            state_ = State::Failed;
        } else if (input_.ends_with(endOfHead)) {
            const auto text = std::exchange(input_, {});
            const auto head =
                HttpHead::parse(std::string_view(text).substr(0, text.size() - endOfHead.size()));
            state_ = head && isAccepted(*head, output_) ? State::Done : State::Failed;
        } else if (input_.size() == longest) {
            state_ = State::Failed;
        }
    }
}

bool mayAskForUpgrade(std::string_view first) {
    return requestLine.substr(0, 4).starts_with(first.substr(0, 4));
}

bool UpgradeRequestReader::mayBegin(std::string& input) {
    return mayAskForUpgrade(input);
}

bool UpgradeRequestReader::isAccepted(const HttpHead& head, std::string& output) {
    if (head.firstLine != requestLine) {
        output += withoutBody("404 Not Found");
        return false;
    }
    const auto nonce = head.only("sec-websocket-key").value_or(""sv);
    const auto decoded = decodeBase64(nonce, Base64::Padded);
    if (!head.only("host") || !head.lists("upgrade", "websocket", false) ||
        !head.lists("connection", "upgrade", false) || !decoded || decoded->size() != 16 ||
        !head.lists("sec-websocket-protocol", protocol, true) || head.has("content-length") ||
        head.has("transfer-encoding")) {
        output += withoutBody("400 Bad Request");
        return false;
    }
    if (head.only("sec-websocket-version") != "13"sv) {
        output += withoutBody("426 Upgrade Required\r\nSec-WebSocket-Version: 13");
        return false;
    }
    output +=
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: " +
        acceptOf(nonce) + "\r\nSec-WebSocket-Protocol: " + std::string(protocol) + "\r\n\r\n";
    return true;
}

std::array<unsigned char, 16> UpgradeReplyReader::freshNonce() {
    std::array<unsigned char, 16> nonce;
    fillWithRandom(nonce);
    return nonce;
}

UpgradeReplyReader::UpgradeReplyReader(const std::array<unsigned char, 16>& nonce,
                                       const RelayedHost* host)
    : nonce_(encodeBase64({reinterpret_cast<const char*>(nonce.data()), nonce.size()},
                          Base64::Padded)) {
    // The address is of no use to the host, and came from a service: it stays out of the head.
    const auto line =
        host ? "GET /" + std::to_string(host->number) + " HTTP/1.1\r\nHost: " + host->relay
             : std::string(requestLine) + "\r\nHost: zelvo";
    output_ = line +
              "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
              "Sec-WebSocket-Key: " +
              nonce_ +
              "\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: " + std::string(protocol) +
              "\r\n\r\n";
}

bool UpgradeReplyReader::mayBegin(std::string& input) {
    constexpr auto status = "HTTP/1.1 101"sv;
    const auto sameForm = [](char form, char c) {
        return form == '0' ? c >= '0' && c <= '9' : form == c;
    };
    const auto compared = std::min(input.size(), greetingForm.size());
    if (!wasGreeted_ && std::equal(greetingForm.begin(), greetingForm.begin() + compared,
                                   input.begin(), sameForm)) {
        // Its only line end is its last byte, and input is taken by lines: there is no more yet.
        if (input.size() == greetingForm.size()) {
            wasGreeted_ = true;
            input.clear();
        }
        return true;
    }
    isBusy_ = input.starts_with("HTTP/1.1 429"sv) || input.starts_with("HTTP/1.1 503"sv);
    // Why it is refused comes with the last digit.
    const auto judged = input.size() < status.size() ? status.size() - 3 : status.size();
    return status.starts_with(std::string_view(input).substr(0, judged));
}

bool UpgradeReplyReader::isAccepted(const HttpHead& head, std::string&) {
    constexpr auto status = "HTTP/1.1 101"sv;
    return (head.firstLine == status || head.firstLine.substr(status.size()).starts_with(' ')) &&
           head.lists("upgrade", "websocket", false) &&
           head.lists("connection", "upgrade", false) &&
           head.only("sec-websocket-accept") == acceptOf(nonce_) &&
           head.only("sec-websocket-protocol") == protocol && !head.has("sec-websocket-extensions");
}

}  // namespace zelvo::sealing
