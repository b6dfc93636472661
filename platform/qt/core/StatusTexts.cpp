#include "platform/qt/core/StatusTexts.h"

#include <array>

#include "platform/Bundle.h"
#include "platform/Explanations.h"
#include "platform/MainWindowModel.h"

namespace zelvo::platform {

namespace {

struct Texts {
    const char* title;
    const char* explanation;
};

constexpr Texts Starting{"Getting ready", "Zelvo is checking whether Screen Sharing is on."};
constexpr Texts MakingLink{"Making your link",
                           "Zelvo is asking your router to let a viewer in. This takes a few "
                           "seconds."};
constexpr Texts LinkReady{"Your link is ready",
                          "Send the link to the person who should see your screen. You will be "
                          "asked before anybody gets in."};
constexpr Texts LinkInVain{"Your link may not work", LinkReady.explanation};
constexpr Texts Quitting{"Quitting",
                         "Zelvo is taking your link back and leaving your computer as it was. This "
                         "takes a few seconds at most."};

constexpr Texts NotWithdrawn{"Your link was not taken back", Quitting.explanation};

constexpr std::array<Texts, 8> PerStatus{
    Starting,
    Texts{"Screen Sharing is off",
          "Zelvo is switching it on. Your system may ask for your password. Press “Start Over” to "
          "be asked again."},
    MakingLink,
    MakingLink,
    Texts{"No link yet",
          "Your router or the sharing service did not answer as hoped. Press “Start Over” to try "
          "again, or open Router Help in the Help menu."},
    LinkReady,
    LinkReady,
    Texts{"Somebody is connected",
          "Press “Disconnect” to end the session. Your link stays valid until you quit Zelvo."},
};

/// With a reason it is about what has gone wrong.
const Texts& keysOf(MainWindowModel& model, bool hasReason) {
    if (model.isQuitting().value())
        return hasReason ? NotWithdrawn : Quitting;
    auto status = static_cast<std::size_t>(model.zelvoStatusProperty().value());
    if (status >= PerStatus.size())
        return Starting;
    return hasReason && (status == 5 || status == 6) ? LinkInVain : PerStatus[status];
}

StatusTexts localized(const Texts& keys, const Bundle& bundle) {
    return {bundle.localizedString(keys.title), bundle.localizedString(keys.explanation)};
}

}  // namespace

StatusTexts statusTexts(MainWindowModel& model, Explanations& explanations, const Bundle& bundle) {
    auto reason = reasonFor(model, explanations);
    auto texts = localized(keysOf(model, !reason.empty()), bundle);
    if (!reason.empty())
        texts.explanation = std::move(reason);
    return texts;
}

std::vector<StatusTexts> allStatusTexts(const Bundle& bundle) {
    std::vector<StatusTexts> all{localized(LinkInVain, bundle), localized(Quitting, bundle),
                                 localized(NotWithdrawn, bundle)};
    for (const auto& keys : PerStatus)
        all.push_back(localized(keys, bundle));
    return all;
}

std::string reasonFor(MainWindowModel& model, Explanations& explanations) {
    auto status = model.zelvoStatusProperty().value();
    if (model.isQuitting().value())
        return explanations.withdrawal().value();
    if (status > 6)
        return {};
    return status <= 1 ? explanations.screenSharing().value() : explanations.router().value();
}

}  // namespace zelvo::platform
