#pragma once

#include <functional>

struct ssl_st;

namespace zelvo::serving {

class ClientAddress;

/// What a session's bytes pass before it reads them.
struct Door {
    enum class Word { GoOn, Wait, End };

    /// Where a proxy's header comes before the client's bytes: hears which client it names, or null
    /// where it names none, and says whether that may go on. Empty where no header is awaited.
    std::function<bool(const ClientAddress*)> heard;
    /// Asked for each step of the handshake once there is something for it. Who is to wait is asked
    /// again when the session tries again.
    std::function<Word()> mayStep;
};

void putBefore(ssl_st* session, Door door);

}  // namespace zelvo::serving
