#include "server/gate/Returns.h"

#include <algorithm>
#include <utility>

#include "sealing/Primitives.h"

namespace zelvo::server {

sealing::ReturnSecret Returns::enter(ViewerId viewer, platform::gate::Rights rights,
                                     const std::string& name, std::vector<ViewerId> before) {
    auto& session = sessions_.emplace_back();
    session.viewer = viewer;
    session.rights = rights;
    session.name = name;
    session.before = std::move(before);
    sealing::fillWithRandom(session.secret.bytes());
    return session.secret;
}

Returns::ViewerId Returns::latest(ViewerId viewer) const {
    for (const auto& session : sessions_) {
        if (std::find(session.before.begin(), session.before.end(), viewer) != session.before.end())
            return session.viewer;
    }
    return viewer;
}

void Returns::setRights(ViewerId viewer, platform::gate::Rights rights) {
    for (auto& session : sessions_) {
        if (session.viewer == viewer)
            session.rights = rights;
    }
}

void Returns::lose(ViewerId viewer, Time now) {
    for (auto& session : sessions_) {
        if (session.viewer == viewer)
            session.until = now + longestAbsence;
    }
}

void Returns::end(ViewerId viewer) {
    sessions_.remove_if([&](const Session& session) { return session.viewer == viewer; });
}

std::optional<Returns::Session> Returns::take(const sealing::SealedChannel& channel, Time now) {
    const auto session =
        std::find_if(sessions_.begin(), sessions_.end(), [&](const Session& candidate) {
            return now < candidate.until && channel.offersReturn(candidate.secret);
        });
    if (session == sessions_.end())
        return std::nullopt;
    auto taken = *session;
    sessions_.erase(session);
    return taken;
}

Returns::Time Returns::nextDeadline() const {
    auto next = Time::max();
    for (const auto& session : sessions_)
        next = std::min(next, session.until);
    return next;
}

void Returns::tick(Time now) {
    sessions_.remove_if([&](const Session& session) { return now >= session.until; });
}

}  // namespace zelvo::server
