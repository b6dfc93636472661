#include "platform/qt/widgets/AccessibleRoles.h"

#include <QAccessible>
#include <QAccessibleWidget>

#include "platform/qt/widgets/ImageView.h"
#include "platform/qt/widgets/Spinner.h"
#include "platform/qt/widgets/StatusLabel.h"

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
    if (auto* label = qobject_cast<StatusLabel*>(object))
        return new StatusInterface(label);
    if (auto* image = qobject_cast<ImageView*>(object))
        return new QAccessibleWidget(image, QAccessible::Graphic);
    if (auto* spinner = qobject_cast<Spinner*>(object))
        return new QAccessibleWidget(spinner, QAccessible::Animation);
    return nullptr;
}

}  // namespace

void installAccessibleRoles() {
    QAccessible::installFactory(makeInterface);
}

}  // namespace zelvo::platform
