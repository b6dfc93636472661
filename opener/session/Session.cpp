#include "opener/session/Session.h"

#include <utility>

namespace zelvo::opener {

Session::Session(Surroundings surroundings, sealing::ShareLink link, std::string name)
    : surroundings_(std::move(surroundings)), link_(std::move(link)), name_(std::move(name)) {}

Session::~Session() = default;

template <typename Change>
void Session::change(Change&& how) {
    auto state = state_.value();
    how(state);
    state_.set(std::move(state));
}

void Session::start() {
    line_.reset();
    wasInside_ = false;
    start_ = std::make_shared<char>();
    change([](SessionState& state) {
        state.stage = Stage::Asking;
        state.digits.clear();
    });
    surroundings_.facts.ask(link_.identifier,
                            [this, start = std::weak_ptr(start_)](const FactsAnswer& answer) {
                                if (!start.expired())
                                    factsArrived(answer);
                            });
}

void Session::factsArrived(const FactsAnswer& answer) {
    if (const auto* why = std::get_if<NoFacts>(&answer))
        return end(endingOf(*why));
    facts_ = std::get<HostFacts>(answer);
    change([this](SessionState& state) {
        state.host = facts_->name;
        state.addressIsProven = facts_->addressIsProven;
    });
    connect();
}

void Session::connect() {
    line_ = surroundings_.makeLine(
        {facts_->address, facts_->port, sealing::ChannelKey(link_), name_}, listener());
}

HostLine::Listener Session::listener() {
    return {.opened =
                [this](const std::string& digits) {
                    change([&](SessionState& state) { state.digits = digits; });
                },
            .stands = [this](const auto& standing) { stands(standing); },
            .rfbBegan =
                [this](platform::FileDescriptor rfb) {
                    if (rfbBegan)
                        rfbBegan(std::move(rfb));
                },
            .ended = [this](const auto& how) { lineEnded(how); }};
}

void Session::stands(const sealing::Standing& standing) {
    using Place = sealing::Standing::Place;
    auto next = state_.value();
    next.secondsLeft = standing.secondsLeft;
    switch (standing.place) {
        case Place::InLine:
            next.stage = Stage::InLine;
            break;
        case Place::Asked:
            next.stage = Stage::Asked;
            break;
        case Place::Watching:
        case Place::Controlling:
            wasInside_ = true;
            next.stage = Stage::Inside;
            next.controls = standing.place == Place::Controlling;
            break;
        default:
            return;
    }
    state_.set(std::move(next));
}

void Session::lineEnded(const LineEnding& how) {
    end(endingOf(how));
}

void Session::leave() {
    if (state_.value().stage != Stage::Ended)
        end(Ending::Left);
}

void Session::pictureFailed(std::string why) {
    if (line_)
        end(Ending::PictureBroken, std::move(why));
}

void Session::end(Ending why, std::string detail) {
    line_.reset();
    start_.reset();
    change([&](SessionState& state) {
        state.stage = Stage::Ended;
        state.ending = why;
        state.detail = std::move(detail);
        state.digits.clear();
    });
}

}  // namespace zelvo::opener
