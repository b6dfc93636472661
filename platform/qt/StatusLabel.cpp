#include "platform/qt/StatusLabel.h"

#include <QAccessible>
#include <QAccessibleWidget>

namespace zelvo::platform {

namespace {

class StatusInterface final : public QAccessibleWidget {
  public:
    explicit StatusInterface(QLabel* label) : QAccessibleWidget(label, QAccessible::AlertMessage) {}

    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Name ? static_cast<QLabel*>(object())->text()
                                         : QAccessibleWidget::text(kind);
    }
};

QAccessibleInterface* makeInterface(const QString&, QObject* object) {
    auto* label = qobject_cast<StatusLabel*>(object);
    return label ? new StatusInterface(label) : nullptr;
}

}  // namespace

StatusLabel::StatusLabel(QWidget* parent) : QLabel(parent) {
    QAccessible::installFactory(makeInterface);
}

// Screen readers speak an alert when it is shown; on AT-SPI nothing else of it is passed on.
void StatusLabel::announce() {
    for (auto type : {QAccessible::NameChanged, QAccessible::ObjectShow}) {
        QAccessibleEvent event(this, type);
        QAccessible::updateAccessibility(&event);
    }
}

}  // namespace zelvo::platform
