#include "platform/qt/content/Message.h"

#include <QString>

#include "platform/Bundle.h"
#include "platform/WayIn.h"

namespace zelvo::platform {

std::string messageOf(const std::vector<std::string>& items, const WayIn& wayIn,
                      const Bundle& bundle) {
    std::string message;
    for (const auto& item : items)
        message += (message.empty() ? "" : "\n\n") + item;
    const auto page = items.size() > 1 ? wayIn.webLink(items[1]) : std::string();
    if (page.empty())
        return message;
    const char* sentence = wayIn.isRelay().value()
                               ? "In a browser, with nothing to install: %@"
                               : "If nothing opens the link, this page says what to do: %@";
    auto told = QString::fromStdString(bundle.localizedString(sentence));
    return message + "\n\n" + told.replace("%@", QString::fromStdString(page)).toStdString();
}

}  // namespace zelvo::platform
