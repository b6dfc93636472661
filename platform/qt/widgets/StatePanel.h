#pragma once

#include <QFrame>

namespace zelvo::platform {

/// A ground whose colour tells a state: none at rest, amber while somebody asks, blue while
/// somebody is connected. What lies on it is written in a colour that can be read there.
class StatePanel final : public QFrame {
    Q_OBJECT
    Q_PROPERTY(QString state READ state WRITE setState)

  public:
    using QFrame::QFrame;

    QString state() const { return state_; }
    /// "asking", "connected" or empty.
    void setState(const QString& state);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QString state_;
};

}  // namespace zelvo::platform
