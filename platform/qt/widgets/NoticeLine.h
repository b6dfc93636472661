#pragma once

#include <QStackedWidget>
#include <QTimer>
#include <chrono>

namespace zelvo::platform {

class StatusLabel;

/// A sentence that is shown for a while.
struct Notice {
    /// Of the string table.
    const char* key;
    std::chrono::milliseconds time;
};

inline constexpr Notice Copied{"Copied", std::chrono::seconds(4)};
inline constexpr Notice LinkNotOpened{
    "No program could be opened for this. Copy the link and send it another way.",
    std::chrono::seconds(15)};
inline constexpr Notice TextNotOpened{
    "No program could be opened for this. Copy the text and send it another way.",
    std::chrono::seconds(15)};
inline constexpr Notice HelpInWindow{
    "No browser could be opened, so the help is shown in a window of its own.",
    std::chrono::seconds(15)};

/// Shows its one page, and for a while a notice in its place, which screen readers speak.
class NoticeLine final : public QStackedWidget {
  public:
    explicit NoticeLine(QWidget* parent = nullptr);

    /// In the place of the notice before.
    void say(const Notice& notice);
    /// Ends the notice early, since it holds no longer.
    void clear() { setCurrentIndex(0); }
    /// Keeps room for the longest notice, so that nothing moves when it comes.
    void reserveSpace(int width);

  private:
    StatusLabel* sentence_;
    QTimer end_;
};

}  // namespace zelvo::platform
