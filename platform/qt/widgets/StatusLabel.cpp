#include "platform/qt/widgets/StatusLabel.h"

#include <QAccessible>

namespace zelvo::platform {

// Screen readers speak an alert when it is shown; on AT-SPI nothing else of it is passed on.
void StatusLabel::announce() {
    QAccessibleEvent event(this, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&event);
}

}  // namespace zelvo::platform
