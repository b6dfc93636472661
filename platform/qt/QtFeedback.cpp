#include "platform/qt/QtFeedback.h"

namespace zelvo::platform {

void QtFeedback::showFeedbackDialog(int) {}

}  // namespace zelvo::platform
