#include "platform/linux/relay/RelayExplanation.h"

#include "platform/Bundle.h"

namespace zelvo::platform {

namespace {

void setWhereNew(Observable<std::string>& text, std::string value) {
    if (value != text.value())
        text.set(std::move(value));
}

}  // namespace

void RelayExplanation::wayIs(const RelayPortMapping::Way& way) {
    const auto sentence = [&](const char* key) {
        auto text = bundle_.localizedString(key);
        const auto place = text.find("%@");
        const auto name = way.relay.substr(0, way.relay.find(':'));
        return place == text.npos ? text : text.replace(place, 2, name);
    };
    const bool leadsHere = way.isUp && !way.hasMoved;
    std::string trouble;
    if (way.isUp && way.hasMoved)
        trouble = sentence(
            "The way to this computer has changed, and your link leads nowhere now. Quit Zelvo "
            "and start it again to renew the link.");
    else if (!way.relay.empty() && !way.isUp)
        trouble = sentence(
            "Nobody new can reach you at the moment: there is no connection to %@. Zelvo tries "
            "again.");
    setWhereNew(trouble_, std::move(trouble));
    std::string used;
    if (leadsHere)
        used = sentence("People reach you through %@, which cannot see your screen.");
    else if (way.isMissed)
        used = bundle_.localizedString(
            "The sharing service has no relay for you now, so a browser does not get here: your "
            "helper needs Zelvo.");
    setWhereNew(way_, std::move(used));
}

}  // namespace zelvo::platform
