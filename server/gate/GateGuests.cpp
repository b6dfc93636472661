// What the gate does for and about those who are inside, and with the link that some of them have.

#include <algorithm>
#include <utility>

#include "server/gate/Gate.h"

namespace zelvo::server {

namespace {

using namespace platform::gate;
using sealing::Farewell;

sealing::Standing standingFor(Rights rights) {
    using Place = sealing::Standing::Place;
    return {rights == Rights::Control ? Place::Controlling : Place::Watching};
}

}  // namespace

Gate::~Gate() {
    for (auto& [viewer, entry] : guests_)
        departures_.add(entry.guest->putOut(Farewell::ScreenEnded), Departures::Who::WasInside,
                        now());
    for (auto& [viewer, caller] : callers_) {
        if (caller->proof())
            departures_.add(caller->refuse({}, Farewell::ScreenEnded), Departures::Who::WasInside,
                            now());
    }
}

void Gate::setLink(const Link& link) {
    if (heldLink_ == link)
        return;
    heldLink_ = link;
    // First, so that nobody comes in by the old one again.
    auto key = sealing::newLinkKey();
    if (!link.identifier.empty())
        std::copy(link.key.begin(), link.key.end(), key.bytes().begin());
    link_ = std::make_shared<HeldLink>(sealing::ShareLink{link.identifier, key});
    tellGone(returns_.endAll(), Ending::Disconnected);
    std::vector<ViewerId> inside;
    for (const auto& [viewer, entry] : guests_) {
        if (entry.guest->isSealed())
            inside.push_back(viewer);
    }
    for (auto viewer : inside)
        putOut(viewer, Ending::Disconnected, Farewell::LinkEnded);
    std::vector<ViewerId> waiting;
    for (const auto& [viewer, caller] : callers_) {
        if (caller->isSealed())
            waiting.push_back(viewer);
    }
    for (auto viewer : waiting) {
        sendAway(viewer, {}, Farewell::LinkEnded);
        doorkeeper_.dismiss(viewer, now());
    }
    tellQuestion(Ending::Refused);
}

void Gate::answer(const Reply& reply) {
    if (doorkeeper_.asked() != reply.viewer)
        return;
    const bool isYes = reply.answer != Answer::Refuse;
    sendAway(doorkeeper_.answered(isYes, now()));
    if (!isYes)
        return tellQuestion(Ending::Refused);
    told_.reset();
    admit(reply.viewer, reply.answer == Answer::Control ? Rights::Control : Rights::Watch, {});
    tellQuestion(Ending::ViewerLeft);
}

bool Gate::comesBack(ViewerId viewer) {
    const auto* proof = callers_.at(viewer)->proof();
    if (!proof || !proof->offersReturn())
        return false;
    const auto session = returns_.take(*proof, now());
    if (session && session->isAway())
        tellGone({session->viewer}, Ending::NetworkDied);
    if (!session || doorkeeper_.refusesEverybody())
        return false;
    // Where the host has not noticed yet that the line before was lost.
    forget(session->viewer, Ending::NetworkDied);
    doorkeeper_.dismiss(viewer, now());
    admit(viewer, session->rights, session);
    return true;
}

void Gate::admit(ViewerId viewer, Rights rights, const std::optional<Returns::Session>& session) {
    auto caller = callers_.extract(viewer);
    const auto* proof = caller.mapped()->proof();
    Inside inside{.viewer = viewer,
                  .peer = caller.mapped()->peer(),
                  .isEncrypted = caller.mapped()->isEncrypted(),
                  .rights = letsOnlyWatch_ ? Rights::Watch : rights};
    inside.origin = caller.mapped()->origin();
    if (proof) {
        inside.name = session ? session->name : proof->name();
        inside.digits = proof->digits();
    }
    auto stream = caller.mapped()->admit();
    letGo(std::move(caller.mapped()));
    if (auto* line = stream.line()) {
        if (session)
            line->confirmReturn(session->secret);
        line->tell(standingFor(inside.rights));
        auto before = session ? session->before : std::vector<ViewerId>();
        if (session)
            before.push_back(session->viewer);
        line->giveReturnSecret(
            returns_.enter(viewer, inside.rights, inside.name, std::move(before)));
    }
    auto guest = std::make_unique<Guest>(
        loop_, std::move(stream), [this, viewer](Ending ending) { guestEnded(viewer, ending); });
    guest->setInputPasses(inside.rights == Rights::Control && !isQuestionShown_);
    // In this order: nobody is inside of whom it has not been said.
    handlers_.tell(inside);
    auto serverEnd = guest->takeServerEnd();
    guests_[viewer] = {inside, std::move(guest)};
    if (serverEnd)
        handlers_.admit(viewer, std::move(serverEnd), inside.rights);
    else
        guestEnded(viewer, Ending::ScreenEnded);
}

void Gate::setRights(const SetRights& request) {
    if (letsOnlyWatch_ && request.rights == Rights::Control)
        return;
    // They may have lost the line, or come back, while this was on its way.
    const auto viewer = returns_.latest(request.viewer);
    returns_.setRights(viewer, request.rights);
    auto found = guests_.find(viewer);
    if (found == guests_.end() || found->second.inside.rights == request.rights)
        return;
    auto& [inside, guest] = found->second;
    inside.rights = request.rights;
    guest->setInputPasses(inside.rights == Rights::Control && !isQuestionShown_);
    guest->tell(standingFor(inside.rights));
    handlers_.setRights(viewer, inside.rights);
    handlers_.tell(inside);
}

void Gate::showQuestion(bool isShown) {
    if (isShown == std::exchange(isQuestionShown_, isShown))
        return;
    for (auto& [viewer, entry] : guests_)
        entry.guest->setInputPasses(entry.inside.rights == Rights::Control && !isShown);
    handlers_.setInputPasses(!isShown);
}

void Gate::guestEnded(ViewerId viewer, Ending ending) {
    if (ending == Ending::ScreenEnded)
        return putOut(viewer, ending, Farewell::ScreenEnded);
    const bool mayReturn = ending == Ending::NetworkDied && returns_.lose(viewer, now());
    if (!mayReturn)
        returns_.end(viewer);
    forget(viewer, ending, mayReturn);
}

void Gate::putOut(ViewerId viewer, Ending ending, Farewell farewell) {
    tellGone(returns_.end(viewer), ending);
    auto guest = guests_.find(viewer);
    if (guest == guests_.end())
        return;
    auto stream = guest->second.guest->putOut(farewell);
    if (stream.line())
        departures_.add(std::move(stream), Departures::Who::WasInside, now());
    forget(viewer, ending);
}

void Gate::forget(ViewerId viewer, Ending ending, bool mayReturn) {
    auto guest = guests_.extract(viewer);
    if (!guest)
        return;
    goneGuests_.push_back(std::move(guest.mapped().guest));
    handlers_.tell(Left{viewer, ending, mayReturn});
}

void Gate::tellGone(const std::vector<ViewerId>& away, Ending ending) {
    for (auto viewer : away)
        handlers_.tell(Left{viewer, ending});
}

void Gate::disconnect(ViewerId viewer) {
    if (viewer != everybody)
        return putOut(returns_.latest(viewer), Ending::Disconnected, Farewell::Disconnected);
    while (!guests_.empty())
        putOut(guests_.begin()->first, Ending::Disconnected, Farewell::Disconnected);
    // Who is away just now is meant, too.
    tellGone(returns_.endAll(), Ending::Disconnected);
    if (doorkeeper_.asked())
        sendAway(doorkeeper_.answered(false, now()));
    for (auto waiting : doorkeeper_.everybodyAtTheDoor()) {
        doorkeeper_.leave(waiting, now());
        sendAway(waiting, Refusal::No);
    }
    tellQuestion(Ending::Disconnected);
}

}  // namespace zelvo::server
