#include "opener/session/SessionLines.h"

#include <utility>

namespace zelvo::opener {

namespace {

std::string words(const SessionState& state) {
    switch (state.stage) {
        case Stage::Asking:
            return "asking";
        case Stage::InLine:
            return "in line";
        case Stage::Asked:
            return "asked " + std::to_string(state.secondsLeft);
        case Stage::Inside:
            return state.controls ? "controlling" : "watching";
        case Stage::Returning:
            return "returning";
        case Stage::Ended:
            break;
    }
    return "ended " + std::string(textsOf(state.ending).word);
}

}  // namespace

SessionLines::SessionLines(const Session& session, std::function<void(const std::string&)> say)
    : say_(std::move(say)),
      subscription_(session.state().bind([this](const auto& state) { show(state); })) {}

void SessionLines::show(const SessionState& state) {
    if (!state.host.empty())
        sayWhenNew(host_, "Host: " + state.host);
    if (!state.digits.empty())
        sayWhenNew(digits_, "Digits: " + state.digits);
    sayWhenNew(state_, "State: " + words(state));
}

void SessionLines::sayWhenNew(std::string& said, const std::string& line) {
    if (line == said)
        return;
    said = line;
    say_(line);
}

}  // namespace zelvo::opener
