#pragma once

#include <QString>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

class QKeyEvent;

namespace zelvo::opener {

/// What is typed here, as X keysyms for the host: characters as what they are, whatever keys make
/// them here or there. So what only chooses among the characters of a key (AltGr, Caps Lock, Num
/// Lock) stays here, and repeated keys repeat there.
class Keyboard {
  public:
    using Send = std::function<void(std::uint32_t keysym, bool isDown)>;

    explicit Keyboard(Send send) : send_(std::move(send)) {}

    void press(const QKeyEvent& event);
    void release(const QKeyEvent& event);
    /// Text that no key stands for: composed, or of an input method.
    void type(const QString& text);
    /// Presses one after the other, calls, and lets them go the other way round.
    void strike(const std::vector<std::uint32_t>& keysyms,
                const std::function<void()>& meanwhile = {});
    void releaseAll();

  private:
    Send send_;
    /// Keysyms by the key that holds them down.
    std::map<std::uint32_t, std::uint32_t> held_;
};

}  // namespace zelvo::opener
