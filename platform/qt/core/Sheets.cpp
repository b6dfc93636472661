#include "platform/qt/core/Sheets.h"

#include "platform/Alerts.h"
#include "platform/Explanations.h"

namespace zelvo::platform {

std::string reasonFor(const Alert& alert, const Explanations& explanations) {
    return alert.kind == AlertKind::NoLink ? explanations.router().value() : std::string();
}

}  // namespace zelvo::platform
