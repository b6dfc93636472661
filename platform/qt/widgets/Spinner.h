#pragma once

#include <QBasicTimer>
#include <QPixmap>
#include <QWidget>
#include <vector>

namespace zelvo::platform {

/// A ring of dots that turns in steps, slowly enough to cost next to nothing, only while it can be
/// seen, and four times slower while nobody works with its window. Hidden, but keeping its place,
/// while it does not turn. Lies on the palette's base colour.
class Spinner final : public QWidget {
    Q_OBJECT
    Q_PROPERTY(bool spinning READ isSpinning WRITE setSpinning)
    Q_PROPERTY(int stepInterval READ stepInterval WRITE setStepInterval)

  public:
    explicit Spinner(QWidget* parent = nullptr);

    bool isSpinning() const { return spinning_; }
    void setSpinning(bool spinning);
    /// Milliseconds from one step to the next.
    int stepInterval() const { return stepInterval_; }
    void setStepInterval(int milliseconds);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QPixmap drawStep(int step) const;
    bool canBeSeen() const;
    int interval() const;
    void startOrStop();

    QBasicTimer timer_;
    bool spinning_ = false;
    int stepInterval_ = 500;
    int step_ = 0;
    /// Drawn once each.
    std::vector<QPixmap> steps_;
};

}  // namespace zelvo::platform
