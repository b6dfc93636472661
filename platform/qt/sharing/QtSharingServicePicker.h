#pragma once

#include <QMenu>
#include <QPointer>
#include <functional>
#include <optional>

#include "platform/SharingServicePicker.h"
#include "platform/qt/core/QtMainLoop.h"

class QWidget;

namespace zelvo::platform {

class Bundle;

/// A menu below the sender. Needs a QApplication.
class QtSharingServicePicker final : public SharingServicePicker {
  public:
    /// What the desktop can do with the items, in the menu's order.
    using Proposals = std::function<std::vector<SharingService>(const std::vector<std::string>&)>;

    /// All outlive this object.
    QtSharingServicePicker(QtMainLoop& loop, const Bundle& bundle, Proposals proposals);
    ~QtSharingServicePicker() override;

    void show(const std::vector<std::string>& items, SharingServicePickerDelegate& delegate,
              const Rect& rect, Button* view, RectEdge edge) override;

    /// Where a menu without a sender comes up; null takes the present menu down.
    void setWindow(QWidget* window);

  private:
    QtMainLoop& loop_;
    QString imageFolder_;
    Proposals proposals_;
    QWidget* window_ = nullptr;
    QPointer<QMenu> menu_;
    std::optional<QtMainLoop::Tracking> tracking_;
};

}  // namespace zelvo::platform
