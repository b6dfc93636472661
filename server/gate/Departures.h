#pragma once

#include <chrono>
#include <cstddef>
#include <list>

#include "server/gate/ViewerStream.h"

namespace zelvo::server {

/// Those who have been told why they must leave, for as long as it takes them to read that. What
/// they say is not read any more.
class Departures {
  public:
    using Time = std::chrono::steady_clock::time_point;

    enum class Who { Stranger, WasInside };

    /// Where too many strangers leave already the connection ends at once.
    void add(ViewerStream stream, Who who, Time now);

    Time nextDeadline() const;
    void tick(Time now);

  private:
    static constexpr std::size_t mostStrangers = 32;

    struct Leaving {
        ViewerStream stream;
        Who who;
        Time until;
        /// Tried again then, where the network has not taken all.
        Time triedAgain;
        bool hasSaidAll = false;
    };

    static void finish(Leaving& leaving, Time now);

    std::list<Leaving> leaving_;
};

}  // namespace zelvo::server
