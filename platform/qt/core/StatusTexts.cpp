#include "platform/qt/core/StatusTexts.h"

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

constexpr Texts ServiceOff{"Screen Sharing is off",
                           "Zelvo is switching it on. Your system may ask for your password. Press "
                           "“Start Over” to be asked again."};
constexpr Texts NoLink{"No link yet",
                       "Your router or the sharing service did not answer as hoped. Press “Start "
                       "Over” to try again, or open Router Help in the Help menu."};
constexpr Texts Connected{"Somebody is connected",
                          "Press “Disconnect” to end the session. Your link stays valid until you "
                          "quit Zelvo."};

const Texts& keysOf(const MainWindowModel& model, bool nobodyGetsIn) {
    if (model.isQuitting().value())
        return Quitting;
    switch (model.zelvoStatusProperty().value()) {
        case ZelvoStatusServiceDisabled:
            return ServiceOff;
        case ZelvoStatusServiceEnabled:
        case ZelvoStatusMappingPort:
            return MakingLink;
        case ZelvoStatusMappingFailed:
            return NoLink;
        case ZelvoStatusMappingSucceeded:
        case ZelvoStatusWaitingForConnection:
            return nobodyGetsIn ? LinkInVain : LinkReady;
        case ZelvoStatusConnected:
            return Connected;
        default:
            return Starting;
    }
}

StatusTexts localized(const Texts& keys, const Bundle& bundle) {
    return {bundle.localizedString(keys.title), bundle.localizedString(keys.explanation)};
}

}  // namespace

StatusTexts statusTexts(const MainWindowModel& model, const Explanations& explanations,
                        const Bundle& bundle) {
    auto reason = reasonFor(model, explanations);
    auto texts = localized(keysOf(model, !reason.empty()), bundle);
    if (!reason.empty())
        texts.explanation = std::move(reason);
    return texts;
}

std::vector<StatusTexts> allStatusTexts(const Bundle& bundle) {
    std::vector<StatusTexts> all;
    for (const auto& keys :
         {Starting, ServiceOff, MakingLink, NoLink, LinkReady, LinkInVain, Connected, Quitting})
        all.push_back(localized(keys, bundle));
    return all;
}

std::string reasonFor(const MainWindowModel& model, const Explanations& explanations) {
    auto status = model.zelvoStatusProperty().value();
    if (model.isQuitting().value() || status > ZelvoStatusWaitingForConnection)
        return {};
    return status < ZelvoStatusServiceEnabled ? explanations.screenSharing().value()
                                              : explanations.router().value();
}

}  // namespace zelvo::platform
