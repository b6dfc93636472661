#include "serving/Turns.h"

#include <event2/event.h>

#include <utility>

namespace zelvo::serving {
namespace {

/// Some 4 ms, for which everything else on the loop waits.
constexpr int TurnsInRound = 8;
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
    if (lines_.empty() && left_ > 0) {
        --left_;
        return true;
    }
    auto found = byClient_.find(client);
    if (found == byClient_.end())
        found = byClient_.emplace(client, lines_.insert(lines_.end(), Line{client, {}})).first;
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
    lines_.erase(guest.line_);
}

void Turns::beginRound() {
    const bool wasIdle = lines_.empty();
    left_ = TurnsInRound;
    while (left_ > 0 && !lines_.empty())
        callNext();
    if (!wasIdle)
        event_add(&round_, &AtOnce);
}

void Turns::callNext() {
    --left_;
    auto& guest = *lines_.front().guests.front();
    lines_.splice(lines_.end(), lines_, lines_.begin());
    leave(guest);
    guest.hasTurn_ = true;
    guest.onTurn();
}

}  // namespace zelvo::serving
