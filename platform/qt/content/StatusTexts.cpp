#include "platform/qt/content/StatusTexts.h"

#include "platform/Bundle.h"
#include "platform/Explanations.h"
#include "platform/MainWindowModel.h"
#include "platform/Viewers.h"

namespace zelvo::platform {

const char* const NobodyCanHelp =
    "They can only watch: your desktop takes no keys and no clicks from Zelvo.";

namespace {

struct Texts {
    const char* title;
    const char* explanation;
};

constexpr Texts Starting{"Getting ready", "Zelvo is checking whether Screen Sharing is on."};
constexpr Texts MakingLink{
    "Making your link",
    "Zelvo is asking your router, or a relay, to let a viewer in. This takes a few "
    "seconds."};
constexpr Texts LinkReady{"Your link is ready",
                          "Send the link to the person who should see your screen. You will be "
                          "asked before anybody gets in."};
constexpr Texts NobodyIsLetIn{"Nobody is let in",
                              "Everybody who asks is refused until the next start. Press “Ask me "
                              "again” to decide about each of them."};
constexpr Texts LinkInVain{"Your link may not work", LinkReady.explanation};
constexpr Texts Quitting{"Quitting",
                         "Zelvo is taking your link back and leaving your computer as it was. This "
                         "takes a few seconds at most."};

constexpr Texts NotWithdrawn{"Your link was not taken back", Quitting.explanation};

constexpr Texts ServiceOff{"Screen Sharing is off",
                           "Zelvo is switching it on. Your system may ask for your password. Press "
                           "“Start Over” to be asked again."};
constexpr Texts NoLink{"No link yet",
                       "Your router or the sharing service did not answer as hoped. Press “Start "
                       "Over” to try again, or open Router Help in the Help menu."};
constexpr Texts Connected{"Somebody is connected",
                          "Press “Disconnect” to end the session. Your link stays valid until you "
                          "quit Zelvo."};

constexpr Texts Asking{"Somebody wants in",
                       "Press “Show” to see the question, and answer it. Nobody gets in before "
                       "you say yes."};

const Texts& keysOf(const MainWindowModel& model, const Explanations& explanations) {
    if (model.isQuitting().value())
        return explanations.withdrawal().value().empty() ? Quitting : NotWithdrawn;
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
            return explanations.router().value().empty() ? LinkReady : LinkInVain;
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

DoorState doorState(const MainWindowModel& model, const Viewers& viewers) {
    if (model.isQuitting().value())
        return DoorState::Closed;
    if (viewers.question().value())
        return DoorState::Asking;
    bool isConnected = model.zelvoStatusProperty().value() == ZelvoStatusConnected ||
                       !viewers.inside().value().empty();
    return isConnected ? DoorState::Connected : DoorState::Closed;
}

StatusTexts statusTexts(const MainWindowModel& model, const Explanations& explanations,
                        const Bundle& bundle, const Viewers* viewers) {
    auto door = viewers ? doorState(model, *viewers) : DoorState::Closed;
    if (door == DoorState::Asking)
        return localized(Asking, bundle);
    // The status follows within seconds.
    const bool isEarly =
        door == DoorState::Connected && model.zelvoStatusProperty().value() != ZelvoStatusConnected;
    auto reason = isEarly ? std::string() : reasonFor(model, explanations);
    const auto* keys = isEarly ? &Connected : &keysOf(model, explanations);
    if (keys == &LinkReady && viewers && viewers->refusesEverybody().value())
        keys = &NobodyIsLetIn;
    auto texts = localized(*keys, bundle);
    const auto& limits = explanations.screenLimits().value();
    const auto& way = explanations.way().value();
    if (!reason.empty()) {
        texts.explanation = std::move(reason);
        return texts;
    }
    if (keys == &LinkReady && !way.empty())
        texts.explanation += " " + way;
    if (!limits.empty() && (keys == &LinkReady || keys == &Connected))
        texts.explanation += '\n' + limits;
    return texts;
}

std::vector<StatusTexts> allStatusTexts(const Bundle& bundle) {
    std::vector<StatusTexts> all;
    for (const auto& keys : {Starting, ServiceOff, MakingLink, NoLink, LinkReady, LinkInVain,
                             NobodyIsLetIn, Connected, Asking, Quitting, NotWithdrawn})
        all.push_back(localized(keys, bundle));
    return all;
}

std::string reasonFor(const MainWindowModel& model, const Explanations& explanations) {
    auto status = model.zelvoStatusProperty().value();
    if (model.isQuitting().value())
        return explanations.withdrawal().value();
    // A viewer who is there disproves most doubts about the way in.
    if (status > ZelvoStatusWaitingForConnection)
        return explanations.routerNews();
    if (status < ZelvoStatusServiceEnabled)
        return explanations.screenSharing().value();
    if (const auto& router = explanations.router().value();
        !router.empty() || status < ZelvoStatusMappingSucceeded)
        return router;
    return explanations.keptLink().value();
}

}  // namespace zelvo::platform
