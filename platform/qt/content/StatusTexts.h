#pragma once

#include <string>
#include <vector>

namespace zelvo::platform {

class Bundle;
class Explanations;
class MainWindowModel;
class Viewers;

/// The key of why nobody is offered to help.
extern const char* const NobodyCanHelp;

/// What tells the user what the application is at, and what to do next; localised.
struct StatusTexts {
    std::string title;
    std::string explanation;
};

/// Of the model's status, or of its quitting. What the system knows of a stage says more than the
/// text of its status and takes its place. Who asks and who is inside is told at once where there
/// are viewers.
StatusTexts statusTexts(const MainWindowModel& model, const Explanations& explanations,
                        const Bundle& bundle, const Viewers* viewers = nullptr);

enum class DoorState { Closed, Asking, Connected };
DoorState doorState(const MainWindowModel& model, const Viewers& viewers);

/// Every one that there is, save for what the system knows.
std::vector<StatusTexts> allStatusTexts(const Bundle& bundle);

/// What the system knows about the stage that the model is at; empty when that is nothing.
std::string reasonFor(const MainWindowModel& model, const Explanations& explanations);

}  // namespace zelvo::platform
