#include "serving/Turns.h"

#include <event2/event.h>

#include <utility>

namespace zelvo::serving {
namespace {

/// Some 2 ms, for which everything else on the loop waits.
constexpr int TurnsInRound = 4;
constexpr timeval AtOnce{0, 0};

}  // namespace

Turns::Turns(event_base* base) : left_(TurnsInRound) {
    event_assign(
        &round_, base, -1, EV_TIMEOUT,
        [](int, short, void* self) { static_cast<Turns*>(self)->beginRound(); }, this);
}

Turns::~Turns() {
    event_del(&round_);
}

Turns::Guest::~Guest() {
    if (turns_)
        turns_->leave(*this);
}

bool Turns::take(Guest& guest, const std::string& client) {
    if (guest.waits())
        return false;
    if (std::exchange(guest.hasTurn_, false))
        return true;
    if (!event_pending(&round_, EV_TIMEOUT, nullptr))
        event_add(&round_, &AtOnce);
    if (isEmpty() && left_ > 0) {
        --left_;
        return true;
    }
    auto found = byClient_.find(client);
    if (found == byClient_.end())
        found = byClient_.emplace(client, fresh_.insert(fresh_.end(), Line{client, {}})).first;
    guest.turns_ = this;
    guest.line_ = found->second;
    guest.place_ = guest.line_->guests.insert(guest.line_->guests.end(), &guest);
    return false;
}

void Turns::leave(Guest& guest) {
    guest.turns_ = nullptr;
    guest.line_->guests.erase(guest.place_);
    if (!guest.line_->guests.empty())
        return;
    byClient_.erase(guest.line_->client);
    (guest.line_->isFresh ? fresh_ : lines_).erase(guest.line_);
}

void Turns::beginRound() {
    const bool wasIdle = isEmpty();
    left_ = TurnsInRound;
    while (left_ > 0 && !isEmpty())
        callNext();
    if (!wasIdle)
        event_add(&round_, &AtOnce);
}

void Turns::callNext() {
    --left_;
    // However many come for the first time, those who wait for more get every other turn.
    auto& from = lines_.empty() || (left_ % 2 == 1 && !fresh_.empty()) ? fresh_ : lines_;
    auto& guest = *from.front().guests.front();
    from.front().isFresh = false;
    lines_.splice(lines_.end(), from, from.begin());
    leave(guest);
    guest.hasTurn_ = true;
    guest.onTurn();
}

}  // namespace zelvo::serving
