#pragma once

#include <chrono>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/screen_sharing/messages/GateMessage.h"
#include "sealing/SealedChannel.h"

namespace zelvo::server {

/// Who may come back in without being asked about: those who were inside with the link's key and
/// lost the line, for a minute.
class Returns {
  public:
    using Time = std::chrono::steady_clock::time_point;
    using ViewerId = platform::gate::ViewerId;

    static constexpr std::chrono::seconds longestAbsence{60};

    struct Session {
        /// As whom they were inside last, or still are: the host may notice later.
        ViewerId viewer = 0;
        platform::gate::Rights rights = platform::gate::Rights::Watch;
        /// What the question was asked about.
        std::string name;
        sealing::ReturnSecret secret;
        /// As whom they were inside before.
        std::vector<ViewerId> before;
        /// Until when they may come; Time::max() while they are inside.
        Time until = Time::max();

        bool isAway() const { return until != Time::max(); }
    };

    /// Somebody is in. What they are to be given.
    sealing::ReturnSecret enter(ViewerId viewer, platform::gate::Rights rights,
                                const std::string& name, std::vector<ViewerId> before = {});
    /// As whom they are inside, or were last, who were inside as this one; where that is nobody,
    /// this one.
    ViewerId latest(ViewerId viewer) const;
    void setRights(ViewerId viewer, platform::gate::Rights rights);
    /// The line was lost. Whether they may come back.
    bool lose(ViewerId viewer, Time now);
    /// They left, or were put out, and do not come back. Who of them was away.
    std::vector<ViewerId> end(ViewerId viewer);
    std::vector<ViewerId> endAll();
    /// Whom this channel proves to be; once.
    std::optional<Session> take(const sealing::SealedChannel& channel, Time now);

    Time nextDeadline() const;
    /// Who has been away for too long.
    std::vector<ViewerId> tick(Time now);

  private:
    template <typename Ends>
    std::vector<ViewerId> endWhere(Ends ends);

    std::list<Session> sessions_;
};

}  // namespace zelvo::server
