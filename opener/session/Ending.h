#pragma once

#include <cstdint>
#include <string_view>

#include "opener/channel/HostLine.h"
#include "opener/facts/FactsSource.h"

namespace zelvo::opener {

/// Why a session is over, or did not come about.
enum class Ending : std::uint8_t {
    /// The helper went.
    Left,
    // What the host said.
    HostLeft,
    Disconnected,
    ScreenEnded,
    Refused,
    Everybody,
    TooSoon,
    NotAnswered,
    TooMany,
    LinkEnded,
    // What the sharing service said.
    UnknownLink,
    NotShared,
    ServiceBusy,
    ServiceNonsense,
    AddressInside,
    // The way to the sharing service.
    ServiceNoName,
    ServiceNoConnection,
    ServiceNoAnswer,
    CertificateExpired,
    CertificateNotYetValid,
    CertificateUntrusted,
    CertificateOfAnother,
    ServiceNotSecure,
    // The way to the host.
    NoRoute,
    ConnectionRefused,
    TimedOut,
    Unreachable,
    RelayBusy,
    Silent,
    NotOurs,
    // Who answered.
    KeyRefused,
    NotTheHost,
    Broken,
    PictureBroken,
    Cut,
};

/// What a script sees as the program's end. 2 is a command line that makes no sense.
enum class ExitStatus : std::uint8_t {
    Done = 0,
    Failed = 1,
    NoService = 3,
    NotReached = 4,
    Refused = 5,
    NoAnswer = 6,
    LinkEnded = 7,
    NotTheHost = 8,
    Lost = 9,
    GivenUp = 10,
};

struct EndingTexts {
    Ending ending{};
    /// For scripts.
    std::string_view word;
    ExitStatus status{};
    /// Keys of the string table. The title is without a name; "%@" of the sentence is the host's.
    const char* title = "";
    const char* sentence = "";
};

const EndingTexts& textsOf(Ending ending);

Ending endingOf(NoFacts why);
Ending endingOf(const LineEnding& how);

}  // namespace zelvo::opener
