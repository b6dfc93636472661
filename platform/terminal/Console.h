#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/terminal/KeyMode.h"

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

    /// Writes the line at once. Where nobody reads any more it is dropped.
    void line(const std::string& text);

    /// Shows what is typed, where the terminal does not by itself.
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

    int input_;
    int output_;
    bool outputIsTerminal_;
    bool inputIsTerminal_;
    bool inputHasEnded_ = false;
    Sequence sequence_ = Sequence::None;
    std::optional<KeyMode> keyMode_;
    std::function<void(char)> key_;
    std::function<void()> end_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace zelvo::platform
