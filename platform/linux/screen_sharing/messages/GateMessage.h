#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

/// What Zelvo and its screen server say to each other over their private socket: one message a
/// packet (SOCK_SEQPACKET). Each begins with the version of the form; a packet that is not exactly
/// one message of this version is none, and whoever gets it hangs up.
namespace zelvo::platform::gate {

inline constexpr std::uint8_t messageVersion = 6;
/// A text is at most 255 bytes, after its length in one.
inline constexpr std::size_t longestMessage = 600;

/// A viewer, as long as this server runs; never 0.
using ViewerId = std::uint32_t;
inline constexpr ViewerId everybody = 0;

enum class Rights : std::uint8_t {
    /// Sees the screen; neither input nor the clipboard passes.
    Watch = 1,
    Control = 2,
};

enum class Answer : std::uint8_t { Refuse = 0, Watch = 1, Control = 2 };

/// Why a viewer, or a question, is no more.
enum class Ending : std::uint8_t {
    ViewerLeft = 1,
    Refused,
    NotAnswered,
    Disconnected,
    /// The network to the viewer died, or the viewer reads nothing of what it is sent.
    NetworkDied,
    ScreenEnded,
};

struct Peer {
    /// IPv4, in the order of the network.
    std::array<std::uint8_t, 4> address{};
    std::uint16_t port = 0;

    friend bool operator==(const Peer&, const Peer&) = default;
};

// The server's.

/// The first of each side.
struct Hello {
    friend bool operator==(const Hello&, const Hello&) = default;
};
/// The desktop asks the user whether its screen may be shown; the server listens once it may.
struct DesktopAsks {
    friend bool operator==(const DesktopAsks&, const DesktopAsks&) = default;
};
/// The desktop does not show the screen any more; the server ends.
struct DesktopWithdraws {
    friend bool operator==(const DesktopWithdraws&, const DesktopWithdraws&) = default;
};
struct Listening {
    std::uint16_t port = 0;
    /// False where the desktop lets viewers watch and no more.
    bool takesInput = true;
    /// False where it would let them do no more, whatever its user said.
    bool offersInput = true;
    bool hasClipboard = true;
    friend bool operator==(const Listening&, const Listening&) = default;
};
/// Somebody asks, and so many wait behind them. Sent anew when that number changes.
struct Question {
    ViewerId viewer = 0;
    Peer peer;
    bool isEncrypted = false;
    std::uint16_t secondsLeft = 0;
    std::uint8_t waiting = 0;
    /// What somebody who has the link says of themselves, and the digits that they see; empty for
    /// a viewer who has proven nothing.
    std::string name{};
    std::string digits{};
    /// Where a relay saw them come from (Relayed); empty for who came here directly.
    std::string origin{};
    friend bool operator==(const Question&, const Question&) = default;
};
struct QuestionOver {
    ViewerId viewer = 0;
    Ending ending = Ending::ViewerLeft;
    friend bool operator==(const QuestionOver&, const QuestionOver&) = default;
};
/// Somebody is in. Sent anew when the rights change.
struct Inside {
    ViewerId viewer = 0;
    Peer peer;
    bool isEncrypted = false;
    Rights rights = Rights::Watch;
    /// As in the question.
    std::string name{};
    std::string digits{};
    std::string origin{};
    friend bool operator==(const Inside&, const Inside&) = default;
};
/// Said again when somebody who might return may not any more, or is inside under another number.
struct Left {
    ViewerId viewer = 0;
    Ending ending = Ending::ViewerLeft;
    /// Without being asked about.
    bool mayReturn = false;
    friend bool operator==(const Left&, const Left&) = default;
};

// Zelvo's.

/// Counts only for the viewer who is asked about.
struct Reply {
    ViewerId viewer = 0;
    Answer answer = Answer::Refuse;
    friend bool operator==(const Reply&, const Reply&) = default;
};
struct SetRights {
    ViewerId viewer = 0;
    Rights rights = Rights::Watch;
    friend bool operator==(const SetRights&, const SetRights&) = default;
};
/// `everybody` refuses whoever is asked about or waits, too.
struct Disconnect {
    ViewerId viewer = everybody;
    friend bool operator==(const Disconnect&, const Disconnect&) = default;
};
struct RefuseEverybody {
    bool isOn = false;
    friend bool operator==(const RefuseEverybody&, const RefuseEverybody&) = default;
};
/// While it is shown the input of viewers inside is dropped, so that none of them can answer it.
struct QuestionShown {
    bool isShown = false;
    friend bool operator==(const QuestionShown&, const QuestionShown&) = default;
};
/// The link whose holders are let prove that they have it; without an identifier there is none.
/// What holders of another one were given ends.
struct Link {
    std::string identifier;
    std::array<std::uint8_t, 16> key{};
    /// Overwrites the key.
    ~Link();
    friend bool operator==(const Link&, const Link&) = default;
};
/// Where all connect from whom a relay has brought, and nobody else: whoever comes from there
/// without a word of who it is cannot be taken for a viewer on this computer.
inline constexpr std::array<std::uint8_t, 4> relayedAddress{127, 0, 86, 1};
/// Who connects from this port of `relayedAddress` next is somebody whom a relay saw come from that
/// IPv4 or IPv6 address, as text. Said before they connect.
struct Relayed {
    std::uint16_t port = 0;
    std::string origin{};
    friend bool operator==(const Relayed&, const Relayed&) = default;
};
/// Whether those who have proven nothing are refused without a question.
struct AdmitOnlyLinkHolders {
    bool isOn = false;
    friend bool operator==(const AdmitOnlyLinkHolders&, const AdmitOnlyLinkHolders&) = default;
};

using Message = std::variant<Hello, Listening, Question, QuestionOver, Inside, Left, Reply,
                             SetRights, Disconnect, RefuseEverybody, QuestionShown, DesktopAsks,
                             Link, AdmitOnlyLinkHolders, DesktopWithdraws, Relayed>;

/// Who has sent it wipes what holds a link.
std::vector<std::byte> encode(const Message& message);
void wipe(std::span<std::byte> bytes);
/// None unless the bytes are exactly one message with values that exist, names that may be shown,
/// addresses and an identifier that a link can have.
std::optional<Message> decode(std::span<const std::byte> bytes);

}  // namespace zelvo::platform::gate
