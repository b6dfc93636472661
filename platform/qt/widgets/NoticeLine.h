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

extern const Notice Copied;
/// The link could not be handed over, or the text of a dialog.
extern const Notice LinkNotOpened;
extern const Notice TextNotOpened;
extern const Notice HelpInWindow;
/// A message's text is on the clipboard.
extern const Notice PasteText;

/// Shows its one page, and for a while a notice in its place, which screen readers speak.
class NoticeLine final : public QStackedWidget {
    Q_OBJECT

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
