#include "server/gate/RfbHandshake.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace zelvo::server {

namespace {

using namespace std::string_view_literals;

constexpr auto greeting = "RFB 003.008\n"sv;
// Security types, RFC 6143 section 7.1.2 and the registry of section 8.4.
constexpr char none = 1;
constexpr char vencrypt = 19;
// VeNCrypt's version 0.2, and its subtype TLSNone.
constexpr auto vencryptVersion = "\x00\x02"sv;
constexpr auto tlsNone = "\x00\x00\x01\x01"sv;

std::string number32(std::uint32_t value) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text.push_back(static_cast<char>(value >> shift));
    return text;
}

std::string withLength(std::string_view text) {
    return number32(static_cast<std::uint32_t>(text.size())) + std::string(text);
}

}  // namespace

RfbHandshake::RfbHandshake() : output_(greeting) {}

std::size_t RfbHandshake::awaitedSize() const {
    switch (awaited_) {
        case Awaited::Version:
            return greeting.size();
        case Awaited::SecurityType:
            return 1;
        case Awaited::VencryptVersion:
            return vencryptVersion.size();
        case Awaited::VencryptSubtype:
            return tlsNone.size();
        case Awaited::Nothing:
            break;
    }
    return 0;
}

std::size_t RfbHandshake::wanted() const {
    return state_ == State::Talking ? awaitedSize() - input_.size() : 0;
}

void RfbHandshake::receive(std::string_view bytes) {
    if (state_ != State::Talking)
        return;
    input_ += bytes.substr(0, wanted());
    // Not what a viewer says first: no reason to wait for the rest.
    if (awaited_ == Awaited::Version && !greeting.substr(0, 4).starts_with(input_.substr(0, 4)))
        return fail();
    if (wanted() == 0)
        answer(std::exchange(input_, {}));
}

void RfbHandshake::answer(std::string_view message) {
    switch (awaited_) {
        case Awaited::Version:
            return versionArrived(message);
        case Awaited::SecurityType:
            if (message[0] == none)
                return finish();
            if (message[0] != vencrypt)
                return fail();
            output_ += vencryptVersion;
            awaited_ = Awaited::VencryptVersion;
            return;
        case Awaited::VencryptVersion:
            if (message != vencryptVersion)
                return fail();
            // The version is agreed; one subtype.
            output_ += "\x00\x01"sv;
            output_ += tlsNone;
            awaited_ = Awaited::VencryptSubtype;
            return;
        case Awaited::VencryptSubtype:
            if (message != tlsNone)
                return fail();
            output_ += '\x01';
            awaited_ = Awaited::Nothing;
            state_ = State::WantsTls;
            return;
        case Awaited::Nothing:
            return;
    }
}

void RfbHandshake::versionArrived(std::string_view message) {
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    auto number = [&](std::size_t at) {
        return (message[at] - '0') * 100 + (message[at + 1] - '0') * 10 + (message[at + 2] - '0');
    };
    if (!std::all_of(message.begin() + 4, message.begin() + 7, digit) || message[7] != '.' ||
        !std::all_of(message.begin() + 8, message.begin() + 11, digit) || message[11] != '\n')
        return fail();
    const int major = number(4);
    const int minor = number(8);
    if (major < 3 || (major == 3 && minor < 3))
        return fail();
    // Section 7.1.1: other versions are taken for 3.3; later ones speak ours, since we named it.
    minor_ = major > 3 || minor >= 8 ? 8 : minor == 7 ? 7 : 3;
    if (minor_ == 3)
        return finish();  // The server decides, and what it decides is the answer.
    output_ += "\x02"sv;
    output_ += {vencrypt, none};
    awaited_ = Awaited::SecurityType;
}

void RfbHandshake::tlsIsUp() {
    if (state_ == State::WantsTls)
        finish();
}

void RfbHandshake::finish() {
    awaited_ = Awaited::Nothing;
    state_ = State::Done;
}

std::string RfbHandshake::admission() const {
    switch (minor_) {
        case 3:
            return number32(none);
        case 7:
            return {};  // Section 7.1.3: no SecurityResult for None before version 3.8.
        default:
            return number32(0);
    }
}

std::string RfbHandshake::refusal(std::string_view reason) const {
    // Instead of the security types, where those are still to come; with 3.3 that is always so.
    if (minor_ == 3)
        return number32(0) + withLength(reason);
    if (state_ == State::Done && minor_ == 8)
        return number32(1) + withLength(reason);
    return {};
}

}  // namespace zelvo::server
