#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Observable.h"

namespace zelvo::platform {

/// What a viewer who is inside may do.
enum class ViewerRights {
    /// See the screen: no keys, no pointer, no clipboard in either direction.
    Watch,
    Control,
};

/// Somebody who sees the screen. Value type.
struct Viewer {
    /// Never the same for two viewers of one launch.
    std::uint32_t id = 0;
    /// Numeric, without a port.
    std::string address;
    bool isEncrypted = false;
    ViewerRights rights = ViewerRights::Watch;
    std::chrono::system_clock::time_point since;
    /// What somebody who has the link says of themselves, fit to be shown, and the digits that
    /// they see; empty for a viewer who has not proven to have it.
    std::string name{};
    std::string digits{};
    /// Whether the address is a relay's word, which nobody here can check.
    bool isRelayed = false;

    friend bool operator==(const Viewer&, const Viewer&) = default;
};

/// Somebody who wants to. Value type.
struct ViewerQuestion {
    std::uint32_t id = 0;
    std::string address;
    bool isEncrypted = false;
    /// Without an answer by then, it is no.
    std::chrono::steady_clock::time_point until;
    /// How many more wait for theirs.
    std::size_t waiting = 0;
    /// As a viewer's.
    std::string name{};
    std::string digits{};
    bool isRelayed = false;

    friend bool operator==(const ViewerQuestion&, const ViewerQuestion&) = default;
};

/// What the desktop lets viewers do at all, whatever the answer. Value type.
struct ViewerAbilities {
    bool canControl = true;
    /// Whether the desktop's user could have let them.
    bool couldControl = true;
    bool canShareClipboard = true;

    friend bool operator==(const ViewerAbilities&, const ViewerAbilities&) = default;
};

enum class ViewerAnswer { Refuse, Watch, Control };

/// Who wants in and who is in, as the screen server tells, and what is to be done about them.
/// Without a screen server there is nobody, and nothing that is said here does anything. Main
/// thread only.
class Viewers {
  public:
    virtual ~Viewers() = default;

    /// In the order in which they came in.
    virtual const Observable<std::vector<Viewer>>& inside() const = 0;
    /// Who has lost the connection and may come back without a question, as they were inside.
    /// Whoever loses it is here before they are no longer inside.
    virtual const Observable<std::vector<Viewer>>& away() const = 0;
    /// One at a time; taken back when the one who asks has left.
    virtual const Observable<std::optional<ViewerQuestion>>& question() const = 0;
    /// Nobody is asked about any more, nor let in, until the next launch.
    virtual const Observable<bool>& refusesEverybody() const = 0;
    /// Only who has proven to have the link is asked about; others are refused.
    virtual const Observable<bool>& admitsOnlyLinkHolders() const = 0;

    /// Of the desktop as it is shown now; all of them while none is.
    virtual const Observable<ViewerAbilities>& abilities() const = 0;

    /// Counts only while that one is asked about.
    virtual void answer(std::uint32_t viewer, ViewerAnswer answer) = 0;
    virtual void setRights(std::uint32_t viewer, ViewerRights rights) = 0;
    /// Ends the viewer's connection, at once; who is away does not come back unasked.
    virtual void disconnect(std::uint32_t viewer) = 0;
    /// Ends everybody's in the same way, and refuses who is asked about and who waits.
    virtual void disconnectEverybody() = 0;
    virtual void setRefusesEverybody(bool refuses) = 0;
    virtual void setAdmitsOnlyLinkHolders(bool only) = 0;
    /// Says that the question can be answered on the screen now: input of those inside is dropped
    /// for as long, so that none of them answers it.
    virtual void setQuestionShown(bool isShown) = 0;
};

}  // namespace zelvo::platform
