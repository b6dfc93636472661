#pragma once

#include <cstdint>

namespace zelvo::platform {

/// Where an exchange went wrong.
enum class ExchangeTrouble : std::uint8_t {
    None,
    /// The peer's name was not resolved.
    NoName,
    /// No connection to any of the name's addresses.
    NoConnection,
    /// The peer was there and did not answer, or not to the end.
    NoAnswer,
    CertificateExpired,
    CertificateNotYetValid,
    /// No authority that is trusted here has signed the certificate.
    CertificateUntrusted,
    CertificateOfAnother,
    /// No TLS, or none that is good enough.
    NotSecure,
};

/// What an exchange tells beside its result.
struct ExchangeReport {
    ExchangeTrouble trouble = ExchangeTrouble::None;
    /// 0 without an answer.
    long httpStatus = 0;
};

}  // namespace zelvo::platform
