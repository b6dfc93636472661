#pragma once

#include <QWidget>
#include <functional>

#include "opener/session/Session.h"
#include "opener/window/Layouts.h"

class QLabel;
class QPushButton;

namespace zelvo::platform {
class Spinner;
}  // namespace zelvo::platform

namespace zelvo::opener {

/// Where a session stands, in words, with the digits while there are any.
class StatePage final : public QWidget {
  public:
    struct Listener {
        std::function<void()> cancel;
        std::function<void()> tryAgain;
        std::function<void()> openAnother;
    };

    StatePage(const QString& images, const Listener& listener);

    void showState(const SessionState& state);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void matchSpinner();
    void addDigits(QBoxLayout& column);
    void addButtons(QBoxLayout& column, const Listener& listener);
    void giveFocus(bool mayBeTyping);

    Header header_;
    Stage stage_ = Stage::Asking;
    QWidget* digitsPanel_ = nullptr;
    QLabel* digits_ = nullptr;
    QLabel* warning_ = nullptr;
    platform::Spinner* spinner_ = nullptr;
    QPushButton* cancel_ = nullptr;
    QPushButton* tryAgain_ = nullptr;
    QPushButton* openAnother_ = nullptr;
};

}  // namespace zelvo::opener
