#pragma once

#include <QDialog>
#include <QTimer>
#include <functional>
#include <memory>
#include <vector>

#include "platform/Viewers.h"
#include "platform/qt/viewers/AnswerGuard.h"

class QBoxLayout;
class QLabel;
class QPushButton;

namespace zelvo::platform {

class KeysElsewhere;
class Panel;
class StatusLabel;

/// Asks about one who wants to see the screen. It takes the focus from nothing: by itself it is
/// raised, but gets no keys. Main thread only.
class QuestionDialog final : public QDialog {
  public:
    struct Listener {
        /// Once for each question at most.
        std::function<void(std::uint32_t viewer, ViewerAnswer answer)> answer;
        std::function<void()> refuseEverybody;
        /// True before it can be seen, false once it cannot be.
        std::function<void(bool isShown)> shown;
    };

    /// `images` is the folder of the images.
    QuestionDialog(const QString& images, AnswerGuard::Clock clock, Listener listener);
    ~QuestionDialog() override;

    /// Whether who is let in could help at all, from the next question on.
    void setCanHelp(bool canHelp);
    /// Puts the question in the place of the one before. The buttons rest first.
    void ask(const ViewerQuestion& question);
    /// The same by the user's own wish: it takes the keys, and they can let somebody in.
    void askWithKeys(const ViewerQuestion& question);
    /// Takes over what has changed about the question that stands here.
    void update(const ViewerQuestion& question);
    void takeBack();

    /// 0 while it is not on the screen.
    std::uint32_t viewer() const { return isVisible() ? question_.id : 0; }

  protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void addWords(QBoxLayout& layout, const QString& images);
    void addDigits(QBoxLayout& layout);
    void addButtons(QBoxLayout& layout);
    QPushButton* addButton(const char* name, const char* caption, std::function<void()> action);
    void put(const ViewerQuestion& question);
    void answer(ViewerAnswer answer);
    void takeKeys(bool takes);
    bool takeKey(int key);
    bool letsThrough(const QMouseEvent& event, QPushButton& button);
    void rest();
    void showRest();
    void countDown();
    void applyLook();

    AnswerGuard guard_;
    Listener listener_;
    ViewerQuestion question_;
    bool isAnswered_ = true;
    bool keysMayLetIn_ = false;
    bool pressCounts_ = false;
    std::unique_ptr<KeysElsewhere> keys_;
    QTimer resting_;
    QTimer seconds_;
    StatusLabel* title_ = nullptr;
    StatusLabel* address_ = nullptr;
    StatusLabel* proof_ = nullptr;
    StatusLabel* encryption_ = nullptr;
    Panel* digitsPanel_ = nullptr;
    StatusLabel* digits_ = nullptr;
    QLabel* comparing_ = nullptr;
    QLabel* advice_ = nullptr;
    QLabel* onlyWatching_ = nullptr;
    QLabel* countdown_ = nullptr;
    QLabel* waiting_ = nullptr;
    QPushButton* help_ = nullptr;
    QPushButton* watch_ = nullptr;
    QPushButton* refuse_ = nullptr;
    QPushButton* everybody_ = nullptr;
    std::vector<QPushButton*> buttons_;
};

}  // namespace zelvo::platform
