#pragma once

#include <QLabel>

namespace zelvo::platform {

/// A text whose changes a screen reader speaks without the focus being here.
class StatusLabel final : public QLabel {
    Q_OBJECT

  public:
    using QLabel::QLabel;

    /// Tells assistive technology of the present text.
    void announce();
};

}  // namespace zelvo::platform
