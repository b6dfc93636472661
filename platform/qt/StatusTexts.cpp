#include "platform/qt/StatusTexts.h"

#include <array>

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

constexpr std::array<Texts, LastStatus + 1> PerStatus{
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
    Texts{"Somebody is viewing your screen",
          "Press “Disconnect” to end the session. Your link stays valid until you quit Zelvo."},
    Texts{"Quitting",
          "Zelvo is taking your link back and leaving your computer as it was. This takes a few "
          "seconds at most."},
};

const Texts& textsOf(std::int32_t status) {
    return status < 0 || status > LastStatus ? Starting
                                             : PerStatus[static_cast<std::size_t>(status)];
}

}  // namespace

std::int32_t shownStatus(MainWindowModel& model) {
    return model.isQuitting().value() ? QuittingStatus : model.zelvoStatusProperty().value();
}

const char* statusTitleKey(std::int32_t status) {
    return textsOf(status).title;
}
const char* statusExplanationKey(std::int32_t status) {
    return textsOf(status).explanation;
}

std::string reasonFor(std::int32_t status, Explanations& explanations) {
    if (status <= 1)
        return explanations.screenSharing().value();
    if (status <= 6)
        return explanations.router().value();
    return {};
}

}  // namespace zelvo::platform
