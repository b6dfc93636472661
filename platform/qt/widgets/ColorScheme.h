#pragma once

#include <QDBusVariant>
#include <QObject>
#include <QPalette>

namespace zelvo::platform {

/// The colours of a dark desktop.
QPalette darkPalette();

/// Follows the desktop's wish for dark or light (the settings portal's "color-scheme") where the
/// toolkit's own theme does not. Needs a QApplication.
class ColorScheme final : public QObject {
    Q_OBJECT

  public:
    /// Asks the desktop without waiting for its answer. Nothing where there is no session bus.
    ColorScheme();

    /// As the portal counts: 0 no wish, 1 dark, 2 light.
    void apply(uint scheme);

  private slots:
    void settingChanged(const QString& space, const QString& key, const QDBusVariant& value);

  private:
    bool themeIsDark_;
    bool isApplied_ = false;
};

}  // namespace zelvo::platform
