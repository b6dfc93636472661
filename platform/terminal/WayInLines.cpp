#include "platform/terminal/WayInLines.h"

#include <utility>

#include "platform/Bundle.h"
#include "platform/MainWindowModel.h"
#include "platform/terminal/Words.h"

namespace zelvo::platform {

namespace {

const char* sentenceOf(RelayUse use) {
    switch (use) {
        case RelayUse::Preferred:
            return "People come through a relay, so that a browser is enough. The relay cannot see "
                   "your screen; whoever runs the website could, by changing its page.";
        case RelayUse::Never:
            return "Nobody comes through a relay any more, and no browser gets here.";
        default:
            return "People come through a relay only where your router lets nobody in.";
    }
}

}  // namespace

WayInLines::WayInLines(WayIn& wayIn, MainWindowModel& model, const Bundle& bundle,
                       std::function<void(const std::string&)> line)
    : wayIn_(wayIn),
      model_(model),
      bundle_(bundle),
      line_(std::move(line)),
      changes_(wayIn.relayUse().subscribe([this](auto) { tell(); })) {}

void WayInLines::tell() const {
    line_(bundle_.localizedString(sentenceOf(wayIn_.relayUse().value())));
}

void WayInLines::change(RelayUse wanted) {
    const auto use = wayIn_.relayUse().value() == wanted ? RelayUse::WhereNeeded : wanted;
    model_.changeWay([&wayIn = wayIn_, use] { wayIn.setRelayUse(use); });
}

void WayInLines::takeLine(const std::string& typed) {
    for (const auto& [key, use] :
         {std::pair("browser", RelayUse::Preferred), std::pair("no relay", RelayUse::Never)}) {
        if (isWord(typed, key, bundle_))
            change(use);
    }
}

}  // namespace zelvo::platform
