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

bool Returns::lose(ViewerId viewer, Time now) {
    for (auto& session : sessions_) {
        if (session.viewer != viewer)
            continue;
        session.until = now + longestAbsence;
        return true;
    }
    return false;
}

template <typename Ends>
std::vector<Returns::ViewerId> Returns::endWhere(Ends ends) {
    std::vector<ViewerId> away;
    sessions_.remove_if([&](const Session& session) {
        if (!ends(session))
            return false;
        if (session.isAway())
            away.push_back(session.viewer);
        return true;
    });
    return away;
}

std::vector<Returns::ViewerId> Returns::end(ViewerId viewer) {
    return endWhere([viewer](const Session& session) { return session.viewer == viewer; });
}

std::vector<Returns::ViewerId> Returns::endAll() {
    return endWhere([](const Session&) { return true; });
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

std::vector<Returns::ViewerId> Returns::tick(Time now) {
    return endWhere([now](const Session& session) { return now >= session.until; });
}

}  // namespace zelvo::server
