#pragma once

#include "platform/terminal/Console.h"
#include "platform/terminal/QuestionPrompt.h"
#include "platform/terminal/WayInLines.h"

namespace zelvo::platform {

/// Beside a window: who wants in and who is in as lines on the output, and whole lines of the input
/// as answers. Where the input has ended nobody answers. Needs a QCoreApplication. Main thread
/// only.
class QuestionLines {
  public:
    /// The descriptors stay the caller's; all others outlive this object.
    QuestionLines(Viewers& viewers, WayIn& wayIn, MainWindowModel& model,
                  const Explanations& explanations, const Bundle& bundle, int input = 0,
                  int output = 1);

  private:
    Console console_;
    WayInLines wayIn_;
    QuestionPrompt prompt_;
};

}  // namespace zelvo::platform
