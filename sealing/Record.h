#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "sealing/HelperName.h"

namespace zelvo::sealing {

inline constexpr std::size_t valueSize = 32;
inline constexpr std::size_t proofSize = 32;
/// Bytes in one record: few enough that a slow line has the first of a picture soon.
inline constexpr std::size_t longestData = 16384;

/// The opener's first: the value that it promised, and who wants to help. Who was inside and lost
/// the line proves that, too; for all others the proof is empty.
struct Opening {
    std::string value;
    std::string name;
    std::string proof{};
    friend bool operator==(const Opening&, const Opening&) = default;
};
struct Data {
    std::string bytes;
    friend bool operator==(const Data&, const Data&) = default;
};
/// Why the sender ends it; the last of either side. A reason that is not known yet stays a number.
enum class Farewell : std::uint8_t {
    Left = 1,
    Refused,
    NotAnswered,
    Disconnected,
    TooMany,
    TooSoon,
    Everybody,
    LinkEnded,
    ScreenEnded,
};
struct Goodbye {
    Farewell reason = Farewell::Left;
    friend bool operator==(const Goodbye&, const Goodbye&) = default;
};
/// Where the opener stands, as the host tells it whenever that changes.
struct Standing {
    enum class Place : std::uint8_t { InLine = 1, Asked, Watching, Controlling };
    Place place = Place::InLine;
    /// What is left for an answer; 0 but for Asked.
    std::uint16_t secondsLeft = 0;
    friend bool operator==(const Standing&, const Standing&) = default;
};
/// The host's to who is inside: what brings them back once, should the line be lost.
struct ReturnTicket {
    std::string secret;
    friend bool operator==(const ReturnTicket&, const ReturnTicket&) = default;
};
/// The host's to who came back: that it is still the one who let them in.
struct Returned {
    std::string proof;
    friend bool operator==(const Returned&, const Returned&) = default;
};

/// What is sealed as one.
using Record = std::variant<Opening, Data, Goodbye, Standing, ReturnTicket, Returned>;

inline constexpr std::size_t longestRecord = 1 + longestData;
inline constexpr std::size_t longestOpening = 1 + valueSize + proofSize + longestNameInBytes;

std::string encode(const Record& record);
/// Exactly one record, or none.
std::optional<Record> decodeRecord(std::string_view bytes);

}  // namespace zelvo::sealing
