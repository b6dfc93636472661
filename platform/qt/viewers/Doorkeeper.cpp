#include "platform/qt/viewers/Doorkeeper.h"

#include <utility>

#include "platform/Bundle.h"
#include "platform/qt/viewers/QuestionDialog.h"

namespace zelvo::platform {

Doorkeeper::Doorkeeper(Viewers& viewers, const Bundle& bundle, AnswerGuard::Clock clock)
    : viewers_(viewers), bundle_(bundle), clock_(clock), guard_(std::move(clock)) {
    subscriptions_.push_back(viewers.question().subscribe([this](const auto&) { update(); }));
    subscriptions_.push_back(viewers.inside().subscribe([this](const auto&) { update(); }));
    update();
}

Doorkeeper::~Doorkeeper() {
    end();
}

void Doorkeeper::end() {
    hasEnded_ = true;
    takeBack();
}

void Doorkeeper::showQuestion() {
    const auto& question = viewers_.question().value();
    if (question && question->id != answered_ && !hasEnded_)
        dialog().askWithKeys(*question);
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
    takeBack();
    viewers_.answer(viewer, answer);
}

QuestionDialog& Doorkeeper::dialog() {
    if (!dialog_)
        dialog_ = std::make_unique<QuestionDialog>(
            QString::fromStdString(bundle_.resourcePath()), clock_,
            QuestionDialog::Listener{[this](auto viewer, auto given) { answer(viewer, given); },
                                     [this] { viewers_.setRefusesEverybody(true); },
                                     [this](bool isShown) { viewers_.setQuestionShown(isShown); }});
    dialog_->setCanHelp(viewers_.abilities().value().canControl);
    return *dialog_;
}

void Doorkeeper::takeBack() {
    if (dialog_)
        dialog_->takeBack();
}

void Doorkeeper::update() {
    const auto& question = viewers_.question().value();
    if (!question || question->id == answered_ || hasEnded_) {
        takeBack();
        return;
    }
    if (question->id != asked_)
        guard_.rest();
    asked_ = question->id;
    if (dialog_ && dialog_->viewer() == question->id)
        dialog_->update(*question);
    else if (viewers_.inside().value().empty())
        dialog().ask(*question);
    else
        takeBack();
}

}  // namespace zelvo::platform
