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
    stopEverything();
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
    if (returnSecret_)
        askAgain();
    line_ = surroundings_.makeLine({facts_->address, facts_->port, sealing::ChannelKey(link_),
                                    name_, returnSecret_, facts_->relay},
                                   listener());
}

// Who ends the link while we are away has no line to say so, and may have moved.
void Session::askAgain() {
    if (std::exchange(isAskedAgain_, true))
        return;
    surroundings_.facts.ask(link_.identifier,
                            [this, start = std::weak_ptr(start_)](const FactsAnswer& answer) {
                                if (!start.expired())
                                    answeredAgain(answer);
                            });
}

void Session::answeredAgain(const FactsAnswer& answer) {
    isAskedAgain_ = false;
    if (state_.value().stage != Stage::Returning)
        return;
    if (const auto* facts = std::get_if<HostFacts>(&answer)) {
        facts_->address = facts->address;
        facts_->port = facts->port;
        facts_->relay = facts->relay;
        return;
    }
    const auto why = std::get<NoFacts>(answer);
    if (why == NoFacts::UnknownLink || why == NoFacts::Unavailable)
        end(Ending::LinkEnded);
}

HostLine::Listener Session::listener() {
    return {.opened =
                [this](const std::string& digits) {
                    returnSecret_.reset();
                    change([&](SessionState& state) {
                        state.digits = digits;
                        state.comparesAgain = comesBack_;
                    });
                },
            .stands = [this](const auto& standing) { stands(standing); },
            .isBack = [this] { change([](SessionState& state) { state.comparesAgain = false; }); },
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
    countdown_.reset();
    switch (standing.place) {
        case Place::InLine:
            next.stage = Stage::InLine;
            break;
        case Place::Asked:
            next.stage = Stage::Asked;
            countDown();
            break;
        case Place::Watching:
        case Place::Controlling:
            wasInside_ = true;
            lastReturn_.reset();
            next.stage = Stage::Inside;
            next.controls = standing.place == Place::Controlling;
            break;
        default:
            return;
    }
    state_.set(std::move(next));
}

// The host tells the time when it asks, and then counts for itself.
void Session::countDown() {
    countdown_ = surroundings_.runLoop.scheduleTimer(std::chrono::seconds(1), [this](auto& timer) {
        if (state_.value().secondsLeft == 0)
            timer.invalidate();
        else
            change([](SessionState& state) { --state.secondsLeft; });
    });
}

void Session::lineEnded(const LineEnding& how) {
    if (how.end == LineEnd::Cut && how.returnSecret)
        return comeBack(*how.returnSecret);
    if (!triesToReturnAgain(how.end))
        return end(endingOf(how));
    connectLater();
}

void Session::connectLater() {
    line_.reset();
    nextReturn_ =
        surroundings_.runLoop.performAfterDelay(pauseBetweenReturns, [this] { connect(); });
}

bool Session::triesToReturnAgain(LineEnd end) const {
    if (!returnSecret_)
        return false;
    switch (end) {
        case LineEnd::NoRoute:
        case LineEnd::Refused:
        case LineEnd::TimedOut:
        case LineEnd::Unreachable:
        case LineEnd::Busy:
        case LineEnd::Silent:
            return true;
        default:
            return false;
    }
}

void Session::comeBack(const sealing::ReturnSecret& secret) {
    countdown_.reset();
    const bool isFirstTime = !std::exchange(comesBack_, true);
    returnSecret_ = secret;
    lastReturn_ = surroundings_.runLoop.performAfterDelay(returnsWithin, [this] {
        if (state_.value().stage == Stage::Returning)
            end(Ending::Cut);
    });
    change([](SessionState& state) {
        state.stage = Stage::Returning;
        state.digits.clear();
    });
    // A host that lets go again and again is not to keep us busy.
    if (isFirstTime)
        connect();
    else
        connectLater();
}

void Session::stopEverything() {
    line_.reset();
    start_.reset();
    returnSecret_.reset();
    comesBack_ = isAskedAgain_ = false;
    nextReturn_.reset();
    lastReturn_.reset();
    countdown_.reset();
}

void Session::leave() {
    if (state_.value().stage != Stage::Ended)
        end(Ending::Left);
}

void Session::pictureFailed(std::string why) {
    // That of a line which was cut ends with it.
    if (line_ && state_.value().stage == Stage::Inside)
        end(Ending::PictureBroken, std::move(why));
}

void Session::end(Ending why, std::string detail) {
    stopEverything();
    change([&](SessionState& state) {
        state.stage = Stage::Ended;
        state.ending = why;
        state.detail = std::move(detail);
        state.digits.clear();
    });
}

}  // namespace zelvo::opener
