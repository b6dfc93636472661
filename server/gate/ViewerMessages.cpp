#include "server/gate/ViewerMessages.h"

#include <cstdlib>

namespace zelvo::server {

namespace {

std::uint32_t numberAt(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (auto byte : bytes.substr(at, size))
        value = value << 8U | static_cast<std::uint8_t>(byte);
    return value;
}

}  // namespace

ViewerMessages::Form ViewerMessages::formOf(std::string_view message) {
    switch (static_cast<std::uint8_t>(message[0])) {
        case 0:  // SetPixelFormat
            return {Kind::Allowed, 20};
        case 2: {  // SetEncodings
            if (message.size() < 4)
                return {Kind::Allowed, 0};
            auto count = numberAt(message, 2, 2);
            if (count > mostEncodings)
                return {};
            return {Kind::Allowed, 4 + 4 * count};
        }
        case 3:  // FramebufferUpdateRequest
            return {Kind::Allowed, 10};
        case 4:  // KeyEvent
            return {Kind::Input, 8};
        case 5:  // PointerEvent
            return {Kind::Input, 6};
        case 6: {  // ClientCutText; a negative length says that it is of the extended form
            if (message.size() < 8)
                return {Kind::Input, 0};
            auto length = static_cast<std::int32_t>(numberAt(message, 4, 4));
            auto size = static_cast<std::size_t>(std::llabs(length));
            if (size > longestText)
                return {};
            return {Kind::Input, 8 + size};
        }
        case 251: {  // SetDesktopSize
            if (message.size() < 8)
                return {Kind::Input, 0};
            return {Kind::Input, 8 + 16 * numberAt(message, 6, 1)};
        }
        default:
            return {};
    }
}

bool ViewerMessages::receive(std::string_view bytes, std::string& to) {
    if (!isInitialised_ && !bytes.empty()) {
        isInitialised_ = true;
        to += bytes[0];
        bytes.remove_prefix(1);
    }
    partial_ += bytes;
    std::string_view left = partial_;
    while (!left.empty()) {
        auto form = formOf(left);
        if (form.kind == Kind::Unknown) {
            partial_.clear();
            return false;
        }
        if (form.size == 0 || left.size() < form.size)
            break;
        if (form.kind == Kind::Allowed || inputPasses_)
            to += left.substr(0, form.size);
        left.remove_prefix(form.size);
    }
    partial_.erase(0, partial_.size() - left.size());
    return true;
}

}  // namespace zelvo::server
