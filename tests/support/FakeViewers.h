#pragma once

#include <string>
#include <vector>

#include "platform/Viewers.h"

namespace zelvo::platform {

/// A screen server whose viewers the test sets; what is said to it is kept as lines, such as
/// "answer 1 control" or "disconnect everybody".
class FakeViewers : public Viewers {
  public:
    const Observable<std::vector<Viewer>>& inside() const override { return isInside; }
    const Observable<std::vector<Viewer>>& away() const override { return isAway; }
    const Observable<std::optional<ViewerQuestion>>& question() const override { return asked; }
    const Observable<bool>& refusesEverybody() const override { return refuses; }
    const Observable<bool>& admitsOnlyLinkHolders() const override { return onlyLinkHolders; }
    const Observable<ViewerAbilities>& abilities() const override { return able; }

    void answer(std::uint32_t viewer, ViewerAnswer answer) override {
        const char* word = answer == ViewerAnswer::Control ? " control"
                           : answer == ViewerAnswer::Watch ? " watch"
                                                           : " refuse";
        said.push_back("answer " + std::to_string(viewer) + word);
    }
    void setRights(std::uint32_t viewer, ViewerRights rights) override {
        said.push_back("rights " + std::to_string(viewer) +
                       (rights == ViewerRights::Control ? " control" : " watch"));
    }
    void disconnect(std::uint32_t viewer) override {
        said.push_back("disconnect " + std::to_string(viewer));
    }
    void disconnectEverybody() override { said.push_back("disconnect everybody"); }
    void setRefusesEverybody(bool on) override {
        said.push_back(on ? "refuse everybody" : "ask again");
        refuses.set(on);
    }
    void setAdmitsOnlyLinkHolders(bool only) override {
        said.push_back(only ? "only link holders" : "anybody");
        onlyLinkHolders.set(only);
    }
    void setQuestionShown(bool isShown) override {
        said.push_back(isShown ? "question shown" : "question hidden");
    }

    Observable<std::vector<Viewer>> isInside;
    Observable<std::vector<Viewer>> isAway;
    Observable<std::optional<ViewerQuestion>> asked;
    Observable<bool> refuses{false};
    Observable<bool> onlyLinkHolders{false};
    Observable<ViewerAbilities> able;
    std::vector<std::string> said;
};

}  // namespace zelvo::platform
