#include "platform/linux/relay/ReachCheck.h"

#include <QPointer>
#include <QTimer>
#include <utility>

#include "platform/Bundle.h"
#include "platform/Log.h"

namespace zelvo::platform {

ReachCheck::ReachCheck(const Bundle& bundle, Log& log, Options options)
    : bundle_(bundle), log_(log), options_(std::move(options)) {}

void ReachCheck::linkIsRegistered() {
    round_ = std::make_unique<QObject>();
    QTimer::singleShot(options_.after, round_.get(), [this] {
        options_.ask([this, round = QPointer<QObject>(round_.get())](const Reply& reply) {
            if (round)
                hear(reply);
        });
    });
}

void ReachCheck::forget() {
    round_.reset();
    tell(false);
}

void ReachCheck::hear(const Reply& reply) {
    const auto* reached = reply ? reply->find("Reached") : nullptr;
    const bool isBarred = reached && reached->integer() && *reached->integer() == 0;
    if (isBarred)
        log_.line(
            "Port mapping: the sharing service could not connect to the port that the router has "
            "opened");
    tell(isBarred);
}

void ReachCheck::tell(bool isBarred) {
    std::string text;
    if (isBarred) {
        text = bundle_.localizedString(
            "Nobody gets through the port that your router has opened: the router or this "
            "computer’s firewall keeps them out. Allow port %@ (TCP) there, or use a relay.");
        if (const auto place = text.find("%@"); place != text.npos)
            text.replace(place, 2, std::to_string(port_));
    }
    if (text != text_.value())
        text_.set(std::move(text));
}

}  // namespace zelvo::platform
