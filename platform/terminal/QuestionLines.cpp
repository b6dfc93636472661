#include "platform/terminal/QuestionLines.h"

#include "platform/MainWindowModel.h"

namespace zelvo::platform {

QuestionLines::QuestionLines(Viewers& viewers, WayIn& wayIn, MainWindowModel& model,
                             const Explanations& explanations, const Bundle& bundle, int input,
                             int output)
    : console_(input, output, Console::Reading::Lines),
      wayIn_(wayIn, model, bundle, [this](auto& text) { console_.line(text); }),
      prompt_(viewers, model, explanations, bundle,
              {.line = [this](auto& text) { console_.line(text); },
               .echo = {},
               .otherLine = [this](auto& typed) { wayIn_.takeLine(typed); }}) {
    console_.listen(
        [this, &model](char byte) {
            if (!model.isQuitting().value())
                prompt_.take(byte);
        },
        [this] { prompt_.inputEnded(); });
}

}  // namespace zelvo::platform
