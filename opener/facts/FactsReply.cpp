#include "opener/facts/FactsReply.h"

#include <arpa/inet.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <array>
#include <cctype>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/linux/property_lists/PlistParsing.h"
#include "sealing/HelperName.h"

namespace zelvo::opener {

namespace {

using platform::PropertyList;

/// As many bytes as the service keeps of it.
constexpr std::size_t LongestSettings = std::size_t{64} << 10;
constexpr std::size_t LongestIdentifier = 128;
constexpr qsizetype MostKeys = 5;
constexpr double LargestKeysym = 0x1FFFFFFF;
constexpr std::array HotKeyNumbers{32, 33, 64, 79, 81};
constexpr std::array<std::pair<const char*, HostCorner::Place>, 4> Corners{{
    {"wvous-tl-corner", HostCorner::Place::TopLeft},
    {"wvous-tr-corner", HostCorner::Place::TopRight},
    {"wvous-bl-corner", HostCorner::Place::BottomLeft},
    {"wvous-br-corner", HostCorner::Place::BottomRight},
}};

// The service's codes.
constexpr std::int64_t Done = 0;
constexpr std::int64_t UnknownLink = 5;
constexpr std::int64_t StoreUnavailable = 6;
constexpr std::int64_t InternalError = 12;
constexpr std::int64_t TooManyRequests = 13;

std::string text(const PropertyList& reply, std::string_view key) {
    const auto* value = reply.find(key);
    return value && value->string() ? *value->string() : std::string();
}

/// Where a single host can be.
bool isAddress(const std::string& address) {
    in_addr parsed{};
    if (::inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        return false;
    const auto number = ntohl(parsed.s_addr);
    return number >> 24U != 0 && number < 0xE0000000U;
}

/// A name with or without a port: it becomes part of an address, and of a request.
bool isRelay(const std::string& text) {
    constexpr std::size_t LongestRelay = 259;
    return text.size() <= LongestRelay && std::ranges::all_of(text, [](unsigned char c) {
               return (c < 0x80 && std::isalnum(c)) || c == '.' || c == '-' || c == ':';
           });
}

/// Printable ASCII: what else is in an identifier is none of ours.
std::string identifier(std::string value) {
    const bool isPlain = std::ranges::all_of(value, [](char c) { return c > ' ' && c < '\x7f'; });
    return isPlain && value.size() <= LongestIdentifier ? std::move(value) : std::string();
}

bool isModifier(std::uint32_t keysym) {
    constexpr std::uint32_t ShiftL = 0xFFE1;
    constexpr std::uint32_t HyperR = 0xFFEE;
    return keysym >= ShiftL && keysym <= HyperR;
}

/// A host names its modifiers as the keys of other computers at the same places: Alt where it means
/// Super, and Meta where it means Alt.
std::uint32_t hostsKey(std::uint32_t keysym) {
    constexpr std::uint32_t MetaL = 0xFFE7;
    constexpr std::uint32_t AltL = 0xFFE9;
    constexpr std::uint32_t SuperL = 0xFFEB;
    return keysym == AltL ? SuperL : keysym == MetaL ? AltL : keysym;
}

/// None where one of them is no keysym.
std::optional<std::vector<std::uint32_t>> keysyms(const QJsonValue& value) {
    const auto array = value.toArray();
    if (!value.isArray() || array.size() > MostKeys)
        return std::nullopt;
    std::vector<std::uint32_t> keys;
    for (const auto& key : array) {
        const auto number = key.toDouble();
        if (!key.isDouble() || number < 1 || number > LargestKeysym ||
            number != static_cast<std::uint32_t>(number))
            return std::nullopt;
        keys.push_back(hostsKey(static_cast<std::uint32_t>(number)));
    }
    return keys;
}

void readHotKeys(const QJsonObject& settings, HostFacts& facts) {
    for (const int number : HotKeyNumbers) {
        auto keys = keysyms(settings.value(QString::number(number)));
        if (keys && !keys->empty() && std::all_of(keys->begin(), keys->end() - 1, isModifier))
            facts.hotKeys.push_back({number, std::move(*keys)});
    }
}

void readCorners(const QJsonObject& settings, HostFacts& facts) {
    const auto corners = settings.value("hotCorners").toObject();
    for (const auto& [name, place] : Corners) {
        const auto corner = corners.value(QLatin1String(name)).toObject();
        const auto action = corner.value("value");
        auto modifiers = keysyms(corner.value("modifiers"));
        if (action.isDouble() && modifiers && std::ranges::all_of(*modifiers, isModifier))
            facts.corners.push_back({place, action.toInteger(), std::move(*modifiers)});
    }
}

void readSettings(const std::string& json, HostFacts& facts) {
    if (json.size() > LongestSettings)
        return;
    const auto settings = QJsonDocument::fromJson(QByteArray::fromStdString(json)).object();
    facts.osVersion = identifier(settings.value("osVersion").toString().toStdString());
    readHotKeys(settings, facts);
    readCorners(settings, facts);
}

/// A stranger's text among words of ours.
std::string shownName(const std::string& name) {
    const auto composed =
        QString::fromStdString(name).normalized(QString::NormalizationForm_C).toStdString();
    return sealing::asHelperName(composed);
}

std::optional<NoFacts> refusal(const PropertyList& reply) {
    const auto* status = reply.find("StatusCode");
    if (!status || (!status->integer() && !status->real()))
        return NoFacts::Nonsense;
    switch (*status->integerReading()) {
        case Done:
            break;
        case UnknownLink:
            return NoFacts::UnknownLink;
        case StoreUnavailable:
        case InternalError:
        case TooManyRequests:
            return NoFacts::Busy;
        default:
            return NoFacts::Nonsense;
    }
    const auto* availability = reply.find("availabilityStatus");
    if (availability && availability->integerReading().value_or(0) != 0)
        return NoFacts::Unavailable;
    return std::nullopt;
}

}  // namespace

FactsAnswer readFacts(std::span<const std::byte> bytes) {
    const auto parsed = platform::parsePlist(bytes);
    if (!parsed.value)
        return NoFacts::Nonsense;
    const auto& reply = *parsed.value;
    if (const auto why = refusal(reply))
        return *why;

    HostFacts facts;
    facts.address = text(reply, "IPAddress");
    const auto* port = reply.find("Port");
    const auto number = port ? port->integerReading().value_or(0) : 0;
    if (!isAddress(facts.address) || number < 1 || number > 65535)
        return NoFacts::Nonsense;
    facts.port = static_cast<std::uint16_t>(number);
    facts.relay = text(reply, "Relay");
    if (!facts.relay.empty() && !isRelay(facts.relay))
        return NoFacts::Nonsense;
    const auto* proven = reply.find("AddressProven");
    facts.addressIsProven = proven && proven->integerReading() == 1;
    for (const auto* key : {"ComputerName", "LocalHostname", "IPAddress"})
        if (facts.name.empty())
            facts.name = shownName(text(reply, key));
    facts.layout = identifier(text(reply, "LastKeyboardLocale"));
    readSettings(text(reply, "HotKeys"), facts);
    return facts;
}

}  // namespace zelvo::opener
