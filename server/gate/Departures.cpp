#include "server/gate/Departures.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace zelvo::server {

namespace {

using namespace std::chrono_literals;

constexpr auto timeToReadTheReason = 1s;
constexpr auto betweenTries = 20ms;

}  // namespace

void Departures::add(ViewerStream stream, Who who, Time now) {
    const auto strangers = std::count_if(leaving_.begin(), leaving_.end(), [](const auto& leaving) {
        return leaving.who == Who::Stranger;
    });
    leaving_.push_back({std::move(stream), who, now + timeToReadTheReason, now});
    finish(leaving_.back(), now);
    // What was said is on its way then, too; it only is not heard by who still speaks.
    if (who == Who::Stranger && static_cast<std::size_t>(strangers) >= mostStrangers)
        leaving_.pop_back();
}

void Departures::finish(Leaving& leaving, Time now) {
    leaving.triedAgain = now + betweenTries;
    if (leaving.stream.flush() == ViewerStream::Result::Closed)
        leaving.until = now;
    leaving.hasSaidAll = leaving.stream.unsent() == 0;
    if (leaving.hasSaidAll)
        ::shutdown(leaving.stream.descriptor(), SHUT_WR);
}

Departures::Time Departures::nextDeadline() const {
    auto next = Time::max();
    for (const auto& leaving : leaving_)
        next = std::min({next, leaving.until, leaving.hasSaidAll ? next : leaving.triedAgain});
    return next;
}

void Departures::tick(Time now) {
    for (auto& leaving : leaving_) {
        if (!leaving.hasSaidAll && now >= leaving.triedAgain)
            finish(leaving, now);
    }
    leaving_.remove_if([&](const Leaving& leaving) { return now >= leaving.until; });
}

}  // namespace zelvo::server
