#include "platform/linux/screen_sharing/messages/GateMessage.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <string>
#include <type_traits>
#include <utility>

#include "sealing/HelperName.h"
#include "sealing/ShareLink.h"

namespace zelvo::platform::gate {

namespace {

/// Writes fields in network byte order.
class Writer {
  public:
    template <typename Value>
    bool operator()(Value value) {
        if constexpr (std::is_enum_v<Value>) {
            return (*this)(static_cast<std::underlying_type_t<Value>>(value));
        } else if constexpr (std::is_same_v<Value, bool>) {
            return (*this)(static_cast<std::uint8_t>(value ? 1 : 0));
        } else {
            for (auto shift = sizeof value; shift-- > 0;)
                bytes.push_back(static_cast<std::byte>(value >> (8 * shift)));
            return true;
        }
    }
    template <std::size_t Size>
    bool operator()(const std::array<std::uint8_t, Size>& array) {
        for (auto part : array)
            (*this)(part);
        return true;
    }
    bool operator()(const Peer& peer) { return (*this)(peer.address) && (*this)(peer.port); }
    bool operator()(const std::string& text) {
        const auto size = std::min<std::size_t>(text.size(), 255);
        (*this)(static_cast<std::uint8_t>(size));
        for (std::size_t i = 0; i < size; ++i)
            bytes.push_back(static_cast<std::byte>(text[i]));
        return true;
    }

    std::vector<std::byte> bytes;
};

constexpr bool exists(Rights rights) {
    return rights == Rights::Watch || rights == Rights::Control;
}
constexpr bool exists(Answer answer) {
    return answer <= Answer::Control;
}
constexpr bool exists(Ending ending) {
    return ending >= Ending::ViewerLeft && ending <= Ending::ScreenEnded;
}

/// Reads what Writer writes; false at the first field that is missing or has no such value.
class Reader {
  public:
    explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    template <typename Value>
    bool operator()(Value& value) {
        if constexpr (std::is_enum_v<Value>) {
            std::underlying_type_t<Value> number = 0;
            if (!(*this)(number))
                return false;
            value = static_cast<Value>(number);
            return exists(value);
        } else if constexpr (std::is_same_v<Value, bool>) {
            std::uint8_t number = 0;
            if (!(*this)(number) || number > 1)
                return false;
            value = number == 1;
            return true;
        } else {
            if (bytes_.size() < sizeof value)
                return false;
            std::uint64_t number = 0;
            for (auto byte : bytes_.first(sizeof value))
                number = number << 8U | std::to_integer<std::uint8_t>(byte);
            value = static_cast<Value>(number);
            bytes_ = bytes_.subspan(sizeof value);
            return true;
        }
    }
    template <std::size_t Size>
    bool operator()(std::array<std::uint8_t, Size>& array) {
        return std::all_of(array.begin(), array.end(),
                           [this](auto& part) { return (*this)(part); });
    }
    bool operator()(Peer& peer) { return (*this)(peer.address) && (*this)(peer.port); }
    bool operator()(std::string& text) {
        std::uint8_t size = 0;
        if (!(*this)(size) || bytes_.size() < size)
            return false;
        text.assign(reinterpret_cast<const char*>(bytes_.data()), size);
        bytes_ = bytes_.subspan(size);
        return true;
    }

    bool isAtEnd() const { return bytes_.empty(); }

  private:
    std::span<const std::byte> bytes_;
};

/// Hands each field to the reader or writer, for as long as it says yes.
template <typename Each, typename... Fields>
bool eachOf(Each& each, Fields&... fields) {
    return (each(fields) && ...);
}

template <typename Each, typename M>
bool fields(Each& each, M& m) {
    using Type = std::remove_const_t<M>;
    if constexpr (std::is_same_v<Type, Hello> || std::is_same_v<Type, DesktopAsks> ||
                  std::is_same_v<Type, DesktopWithdraws>)
        return true;
    else if constexpr (std::is_same_v<Type, Listening>)
        return eachOf(each, m.port, m.takesInput, m.offersInput, m.hasClipboard);
    else if constexpr (std::is_same_v<Type, Question>)
        return eachOf(each, m.viewer, m.peer, m.isEncrypted, m.secondsLeft, m.waiting, m.name,
                      m.digits, m.origin);
    else if constexpr (std::is_same_v<Type, Inside>)
        return eachOf(each, m.viewer, m.peer, m.isEncrypted, m.rights, m.name, m.digits, m.origin);
    else if constexpr (std::is_same_v<Type, QuestionOver>)
        return eachOf(each, m.viewer, m.ending);
    else if constexpr (std::is_same_v<Type, Left>)
        return eachOf(each, m.viewer, m.ending, m.mayReturn);
    else if constexpr (std::is_same_v<Type, Reply>)
        return eachOf(each, m.viewer, m.answer);
    else if constexpr (std::is_same_v<Type, SetRights>)
        return eachOf(each, m.viewer, m.rights);
    else if constexpr (std::is_same_v<Type, Disconnect>)
        return eachOf(each, m.viewer);
    else if constexpr (std::is_same_v<Type, Link>)
        return eachOf(each, m.identifier, m.key);
    else if constexpr (std::is_same_v<Type, Relayed>)
        return eachOf(each, m.port, m.origin);
    else if constexpr (std::is_same_v<Type, RefuseEverybody> ||
                       std::is_same_v<Type, AdmitOnlyLinkHolders>)
        return eachOf(each, m.isOn);
    else
        return eachOf(each, m.isShown);
}

/// "012 345 678 901".
bool areDigits(const std::string& text) {
    std::size_t at = 0;
    return text.size() == 15 && std::all_of(text.begin(), text.end(), [&](char c) {
               return ++at % 4 == 0 ? c == ' ' : c >= '0' && c <= '9';
           });
}

bool isAddress(const std::string& text) {
    in6_addr parsed{};
    return ::inet_pton(AF_INET, text.c_str(), &parsed) == 1 ||
           ::inet_pton(AF_INET6, text.c_str(), &parsed) == 1;
}

/// Whether texts are what they should be: those that a stranger wrote end up before a person.
template <typename M>
bool isSound(const M& m) {
    if constexpr (std::is_same_v<M, Question> || std::is_same_v<M, Inside>)
        return (m.origin.empty() || isAddress(m.origin)) &&
               ((m.name.empty() && m.digits.empty()) ||
                (sealing::isHelperName(m.name) && areDigits(m.digits)));
    else if constexpr (std::is_same_v<M, Relayed>)
        return m.port != 0 && isAddress(m.origin);
    else if constexpr (std::is_same_v<M, Link>)
        return m.identifier.empty() || sealing::linkText({m.identifier, {}});
    else
        return true;
}

template <std::size_t Kind = 0>
std::optional<Message> readKind(std::size_t kind, Reader& reader) {
    if constexpr (Kind < std::variant_size_v<Message>) {
        if (kind != Kind)
            return readKind<Kind + 1>(kind, reader);
        std::variant_alternative_t<Kind, Message> message;
        if (fields(reader, message) && reader.isAtEnd() && isSound(message))
            return message;
    }
    return std::nullopt;
}

}  // namespace

Link::~Link() {
    sealing::wipe(key);
}

void wipe(std::span<std::byte> bytes) {
    sealing::wipe({reinterpret_cast<unsigned char*>(bytes.data()), bytes.size()});
}

std::vector<std::byte> encode(const Message& message) {
    Writer writer;
    // So that nothing of it stays where it was before it grew.
    writer.bytes.reserve(longestMessage);
    writer(messageVersion);
    writer(static_cast<std::uint8_t>(message.index()));
    std::visit([&](const auto& m) { fields(writer, m); }, message);
    return std::move(writer.bytes);
}

std::optional<Message> decode(std::span<const std::byte> bytes) {
    Reader reader(bytes);
    std::uint8_t version = 0;
    std::uint8_t kind = 0;
    if (!reader(version) || version != messageVersion || !reader(kind))
        return std::nullopt;
    return readKind(kind, reader);
}

}  // namespace zelvo::platform::gate
