#pragma once

#include <QVariant>
#include <functional>
#include <vector>

#include "platform/Observable.h"

class QObject;

namespace zelvo::platform {

class Bundle;
class Explanations;
class MainWindowModel;
class Viewers;

/// Keeps the named controls below `root` up to date with the model for as long as the
/// subscriptions live.
std::vector<Subscription> bindControls(QObject& root, const MainWindowModel& model,
                                       const Explanations& explanations, const Bundle& bundle,
                                       const Viewers& viewers);

}  // namespace zelvo::platform
