#pragma once

#include <QMessageBox>
#include <QPointer>
#include <QString>
#include <deque>
#include <functional>
#include <memory>

#include "platform/Alerts.h"

class QWidget;

namespace zelvo::platform {

class Bundle;
class Explanations;
class MainQueue;

/// Message boxes as sheets on the main window. Needs a QApplication.
class QtAlerts final : public Alerts {
  public:
    /// All outlive this object.
    QtAlerts(MainQueue& mainQueue, const Bundle& bundle, const Explanations& explanations);
    ~QtAlerts() override;
    QtAlerts(const QtAlerts&) = delete;
    QtAlerts& operator=(const QtAlerts&) = delete;

    void beginSheet(Alert alert, std::function<void(int response)> done) override;

    /// Gives the response of an alert, on the screen or still waiting, on the user's behalf. False
    /// when there is no such alert.
    bool answer(AlertKind kind, int response);

    /// Takes every sheet down unanswered and shows none any more: the application ends.
    void end();

    /// The window below the sheets; null takes the present sheet down.
    void setWindow(QWidget* window);

  private:
    struct Sheet {
        Alert alert;
        std::function<void(int)> done;
    };

    void showNext();
    QMessageBox* makeBox(const Alert& alert);
    void finish(int response);
    void takeDown();

    MainQueue& mainQueue_;
    const Explanations& explanations_;
    QString imageFolder_;
    QWidget* window_ = nullptr;
    QPointer<QMessageBox> box_;
    std::deque<Sheet> sheets_;
    bool hasEnded_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelvo::platform
