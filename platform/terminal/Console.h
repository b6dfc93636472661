#pragma once

#include <QTimer>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/terminal/Encoding.h"
#include "platform/terminal/KeyMode.h"
#include "platform/terminal/Screen.h"

class QSocketNotifier;

namespace zelvo::platform {

/// The terminal, or the pipes in its place: lines out, what is typed in. Needs a QCoreApplication.
/// Main thread only.
class Console {
  public:
    enum class Reading : std::uint8_t {
        /// A terminal gives each key at once, without echo, until this object is destroyed.
        Keys,
        /// As the terminal is: by lines, which it shows and lets its user mend.
        Lines
    };
    /// Of a terminal Ctrl-D, which says that nothing more comes.
    static constexpr char EndOfTransmission = 0x04;

    /// The descriptors stay the caller's.
    explicit Console(int input = 0, int output = 1, Reading reading = Reading::Keys);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Begins to read: `key` for each byte of what is typed, save for cursor and function keys,
    /// `end` once at the end of input.
    void listen(std::function<void(char)> key, std::function<void()> end);

    /// Where keys are read from a terminal that can be drawn on; else nullptr.
    Screen* screen() { return screen_ ? &*screen_ : nullptr; }
    /// Has the terminal as its user left it for somebody else who asks there, and then takes it
    /// again.
    void giveBack();
    void takeAgain();
    /// Written when this object, and the screen with it, goes; for what is to stay.
    void setLastWords(std::string text) { lastWords_ = std::move(text); }

    /// Writes the line, or says it on the screen, at once. Where nobody reads any more it is
    /// dropped.
    void line(const std::string& text);

    /// Shows what is typed, where neither the terminal does by itself nor the screen.
    void echo(const std::string& text);

    /// Characters in a line of the output; 0 where that is unknown.
    int columns() const;
    bool outputIsTerminal() const { return outputIsTerminal_; }
    bool inputHasEnded() const { return inputHasEnded_; }

  private:
    /// Where in the control sequence of a cursor or function key (ECMA-48, section 5.4) we are.
    enum class Sequence : std::uint8_t { None, Begun, Inside };

    void read();
    void take(char byte);
    void takeScreen();

    int input_;
    int output_;
    bool outputIsTerminal_;
    bool inputIsTerminal_;
    bool inputHasEnded_ = false;
    Sequence sequence_ = Sequence::None;
    Encoding encoding_;
    std::optional<KeyMode> keyMode_;
    std::optional<Screen> screen_;
    std::string lastWords_;
    std::function<void(char)> key_;
    std::function<void()> end_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::unique_ptr<QSocketNotifier> changes_;
    /// Runs while somebody else has the screen.
    QTimer untilThere_;
};

}  // namespace zelvo::platform
