#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <variant>

#include "opener/facts/HostFacts.h"

namespace zelvo::opener {

/// Why the sharing service tells nothing about a host.
enum class NoFacts : std::uint8_t {
    /// Nobody is registered under the link (any more).
    UnknownLink,
    /// The host has stopped sharing and may begin again.
    Unavailable,
    /// The service cannot answer now, or not that often.
    Busy,
    /// What came is no answer of a sharing service, or leads nowhere.
    Nonsense,
    /// It would lead us to ourselves, or into a network that is none of the service's.
    Inside,
    // The exchange itself failed.
    NoName,
    NoConnection,
    NoAnswer,
    CertificateExpired,
    CertificateNotYetValid,
    CertificateUntrusted,
    CertificateOfAnother,
    NotSecure,
};

using FactsAnswer = std::variant<HostFacts, NoFacts>;

/// Tells where a host is. Main thread only.
class FactsSource {
  public:
    virtual ~FactsSource() = default;

    /// `done` is called once, later; never after the source's destruction. The identifier is the
    /// one in the link: the key is no part of the question.
    virtual void ask(const std::string& identifier, std::function<void(FactsAnswer)> done) = 0;
};

}  // namespace zelvo::opener
