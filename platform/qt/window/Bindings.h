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
class Preferences;
class Viewers;
class WayIn;

/// What controls show.
struct BindingSource {
    const MainWindowModel& model;
    const Explanations& explanations;
    const Bundle& bundle;
    const Viewers& viewers;
    const WayIn& wayIn;
    const Preferences& preferences;
};

/// Keeps the named controls below `root` up to date with the source, which outlives the
/// subscriptions, for as long as these live.
std::vector<Subscription> bindControls(QObject& root, const BindingSource& source);

}  // namespace zelvo::platform
