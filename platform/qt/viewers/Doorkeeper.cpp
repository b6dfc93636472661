#include "platform/qt/viewers/Doorkeeper.h"

#include "platform/Bundle.h"
#include "platform/Viewers.h"

namespace zelvo::platform {

Doorkeeper::Doorkeeper(Viewers& viewers, const Bundle& bundle, AnswerGuard::Clock clock)
    : viewers_(viewers),
      guard_(clock),
      dialog_(QString::fromStdString(bundle.resourcePath()), clock,
              {[this](auto viewer, auto given) { answer(viewer, given); },
               [this] { viewers_.setRefusesEverybody(true); },
               [this](bool isShown) { viewers_.setQuestionShown(isShown); }}) {
    subscriptions_.push_back(viewers.question().subscribe([this](const auto&) { update(); }));
    subscriptions_.push_back(viewers.inside().subscribe([this](const auto&) { update(); }));
    update();
}

Doorkeeper::~Doorkeeper() {
    end();
}

void Doorkeeper::end() {
    hasEnded_ = true;
    dialog_.takeBack();
}

void Doorkeeper::showQuestion() {
    const auto& question = viewers_.question().value();
    if (question && question->id != answered_ && !hasEnded_)
        dialog_.askWithKeys(*question);
}

void Doorkeeper::refuse(std::uint32_t viewer) {
    const auto& question = viewers_.question().value();
    if (question && question->id == viewer && guard_.isLive())
        answer(viewer, ViewerAnswer::Refuse);
}

void Doorkeeper::answer(std::uint32_t viewer, ViewerAnswer answer) {
    if (viewer == answered_ || hasEnded_)
        return;
    answered_ = viewer;
    dialog_.takeBack();
    viewers_.answer(viewer, answer);
}

void Doorkeeper::update() {
    const auto& question = viewers_.question().value();
    if (!question || question->id == answered_ || hasEnded_) {
        dialog_.takeBack();
        return;
    }
    if (question->id != asked_)
        guard_.rest();
    asked_ = question->id;
    if (dialog_.viewer() == question->id)
        dialog_.update(*question);
    else if (viewers_.inside().value().empty())
        dialog_.ask(*question);
    else
        dialog_.takeBack();
}

}  // namespace zelvo::platform
