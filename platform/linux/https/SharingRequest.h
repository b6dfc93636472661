#pragma once

#include <cstdint>
#include <string>

#include "platform/UrlSession.h"

namespace zelvo::platform {

/// What a request to the sharing service is about, as far as it can be told from its form.
struct SharingRequest {
    enum class Kind : std::uint8_t { Other, Creation, Inquiry, Withdrawal };

    static SharingRequest of(const UrlRequest& request);

    Kind kind = Kind::Other;
    /// Service and link that it changes, the same for all requests about that link; empty where it
    /// changes none that is known already.
    std::string link;
};

}  // namespace zelvo::platform
