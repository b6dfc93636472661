#include "sealing/WebSocket.h"

#include <algorithm>

#include "sealing/Primitives.h"

namespace zelvo::sealing {

namespace {

constexpr std::uint8_t continuation = 0;
constexpr std::uint8_t text = 1;
constexpr std::uint8_t binary = 2;
constexpr std::uint8_t closing = 8;
constexpr std::uint8_t ping = 9;
constexpr std::uint8_t pong = 10;

constexpr std::uint8_t finalBit = 0x80;
constexpr std::uint8_t reservedBits = 0x70;
constexpr std::uint8_t maskBit = 0x80;
/// Instead of a length: it follows in 2, or in 8 bytes.
constexpr std::uint8_t lengthIn2 = 126;
constexpr std::uint8_t lengthIn8 = 127;

bool isControl(std::uint8_t opcode) {
    return opcode >= closing;
}

/// Section 7.4: what may stand in a close frame.
bool isCloseCode(std::uint16_t code) {
    return (code >= 1000 && code <= 1014 && code != 1004 && code != 1005 && code != 1006) ||
           (code >= 3000 && code <= 4999);
}

std::string number(std::uint64_t value, int bytes) {
    std::string text;
    while (bytes > 0)
        text += static_cast<char>(value >> 8 * --bytes);
    return text;
}

}  // namespace

struct WebSocket::Header {
    std::uint8_t flags = 0;
    std::uint8_t opcode = 0;
    bool isMasked = false;
    std::uint8_t shortLength = 0;
    std::uint64_t length = 0;
};

void WebSocket::receive(std::string_view bytes) {
    if (state_ == State::Open || state_ == State::Closing)
        input_ += bytes;
}

std::optional<std::string> WebSocket::next() {
    while (state_ == State::Open || state_ == State::Closing) {
        if (!inFrame_ && !readHeader())
            break;
        readPayload();
        if (left_ > 0)
            break;
        frameIsWhole();
        if (std::exchange(isWhole_, false) && state_ == State::Open)
            return std::exchange(message_, {});
    }
    input_.erase(0, read_);
    read_ = 0;
    return std::nullopt;
}

bool WebSocket::readHeader() {
    const auto bytes = std::string_view(input_).substr(read_);
    const auto byteAt = [&](std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); };
    if (bytes.size() < 2)
        return false;
    Header header;
    header.flags = byteAt(0) & (finalBit | reservedBits);
    header.opcode = byteAt(0) & 0x0F;
    header.isMasked = (byteAt(1) & maskBit) != 0;
    header.shortLength = byteAt(1) & 0x7F;
    const std::size_t lengthSize = header.shortLength == lengthIn2   ? 2
                                   : header.shortLength == lengthIn8 ? 8
                                                                     : 0;
    const std::size_t size = 2 + lengthSize + (header.isMasked ? 4 : 0);
    // Of what is wrong already the rest is not waited for.
    header.length = header.shortLength;
    const bool isThere = bytes.size() >= size;
    if (isThere && lengthSize > 0) {
        header.length = 0;
        for (std::size_t at = 2; at < 2 + lengthSize; ++at)
            header.length = header.length << 8 | byteAt(at);
    }
    if (!isThere && lengthSize > 0)
        header.length = header.shortLength == lengthIn2 ? 126 : 65536;
    if (const auto fault = faultOf(header)) {
        fail(*fault);
        return false;
    }
    if (!isThere)
        return false;
    if (header.isMasked)
        bytes.copy(mask_.data(), mask_.size(), size - mask_.size());
    maskAt_ = 0;
    read_ += size;
    inFrame_ = true;
    isFinal_ = (header.flags & finalBit) != 0;
    opcode_ = header.opcode;
    left_ = static_cast<std::size_t>(header.length);
    control_.clear();
    return true;
}

std::optional<CloseCode> WebSocket::faultOf(const Header& header) const {
    const bool isFinal = (header.flags & finalBit) != 0;
    if ((header.flags & reservedBits) != 0 || header.isMasked != (role_ == Role::Server))
        return CloseCode::ProtocolError;
    if (isControl(header.opcode)) {
        const bool isKnown = header.opcode <= pong;
        return isKnown && isFinal && header.shortLength <= longestControl
                   ? std::nullopt
                   : std::optional(CloseCode::ProtocolError);
    }
    if (header.opcode == text)
        return CloseCode::NotBinary;
    if (header.opcode != (inMessage_ ? continuation : binary))
        return CloseCode::ProtocolError;
    // The shortest way to write a length is the only one; parts of nothing would be free.
    if ((header.shortLength == lengthIn2 && header.length < 126) ||
        (header.shortLength == lengthIn8 && header.length < 65536) ||
        (header.length == 0 && !isFinal))
        return CloseCode::ProtocolError;
    if (header.length > longest_ - std::min(longest_, message_.size()))
        return CloseCode::TooBig;
    return std::nullopt;
}

void WebSocket::readPayload() {
    auto& payload = isControl(opcode_) ? control_ : message_;
    const auto size = std::min(left_, input_.size() - read_);
    const auto before = payload.size();
    payload.append(input_, read_, size);
    if (role_ == Role::Server) {
        for (auto at = before; at < payload.size(); ++at)
            payload[at] = static_cast<char>(payload[at] ^ mask_[maskAt_++ % 4]);
    }
    read_ += size;
    left_ -= size;
}

void WebSocket::frameIsWhole() {
    inFrame_ = false;
    switch (opcode_) {
        case closing:
            return peerCloses();
        case ping:
            pong_ = control_;
            return;
        case pong:
            return;
        default:
            inMessage_ = !isFinal_;
            isWhole_ = isFinal_;
            if (isWhole_ && state_ == State::Closing)
                message_.clear();
    }
}

void WebSocket::peerCloses() {
    if (!control_.empty()) {
        if (control_.size() < 2)
            return fail(CloseCode::ProtocolError);
        const auto code = static_cast<std::uint16_t>(static_cast<unsigned char>(control_[0]) << 8 |
                                                     static_cast<unsigned char>(control_[1]));
        if (!isCloseCode(code))
            return fail(CloseCode::ProtocolError);
        peersCode_ = code;
    }
    // Its words are not repeated: nobody is to be shown what a stranger can write.
    if (state_ == State::Open)
        sendFrame(closing, std::string_view(control_).substr(0, 2));
    state_ = State::Closed;
}

void WebSocket::send(std::string_view message) {
    if (state_ == State::Open)
        sendFrame(binary, message);
}

void WebSocket::close(CloseCode code) {
    if (state_ != State::Open)
        return;
    sendFrame(closing, number(static_cast<std::uint16_t>(code), 2));
    state_ = State::Closing;
}

void WebSocket::fail(CloseCode code) {
    close(code);
    state_ = State::Failed;
}

std::string WebSocket::takeOutput() {
    if (const auto payload = std::exchange(pong_, std::nullopt); payload && state_ == State::Open)
        sendFrame(pong, *payload);
    return std::exchange(output_, {});
}

void WebSocket::sendFrame(std::uint8_t opcode, std::string_view payload) {
    const std::uint8_t masked = role_ == Role::Client ? maskBit : 0;
    output_ += static_cast<char>(finalBit | opcode);
    if (payload.size() < lengthIn2)
        output_ += static_cast<char>(masked | payload.size());
    else if (payload.size() < 65536)
        output_ += static_cast<char>(masked | lengthIn2) + number(payload.size(), 2);
    else
        output_ += static_cast<char>(masked | lengthIn8) + number(payload.size(), 8);
    if (role_ == Role::Server) {
        output_ += payload;
        return;
    }
    std::array<unsigned char, 4> mask;
    fillWithRandom(mask);
    output_.append(reinterpret_cast<const char*>(mask.data()), mask.size());
    for (std::size_t at = 0; at < payload.size(); ++at)
        output_ += static_cast<char>(payload[at] ^ mask[at % 4]);
}

}  // namespace zelvo::sealing
