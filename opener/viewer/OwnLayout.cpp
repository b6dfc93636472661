#include "opener/viewer/OwnLayout.h"

#include "platform/linux/desktop/SystemKeyboard.h"

namespace zelvo::opener {

QString ownLayout() {
    platform::SystemKeyboard keyboard({.display = qEnvironmentVariable("DISPLAY").toStdString(),
                                       .bus = {},
                                       .file = "/etc/default/keyboard"},
                                      [] {});
    return QString::fromStdString(keyboard.inputSource().value_or(""));
}

}  // namespace zelvo::opener
