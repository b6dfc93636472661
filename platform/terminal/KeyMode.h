#pragma once

namespace zelvo::platform {

/// Has a terminal give each key at once and without echo, for as long as this lives and the process
/// is in the terminal's foreground; where a screen is wanted, what is written goes to the
/// terminal's second screen, and of what others write to standard error nothing does. Stopped from
/// the keyboard, ended by a signal or crashed, the process gives the terminal back as it was.
/// Nothing where the descriptor is no terminal. One at a time in a process.
class [[nodiscard]] KeyMode {
  public:
    /// The descriptors stay the caller's; `screen` is the terminal that is drawn on, or -1.
    explicit KeyMode(int terminal, int screen = -1);
    ~KeyMode();
    KeyMode(const KeyMode&) = delete;
    KeyMode& operator=(const KeyMode&) = delete;

    /// Has the terminal as it was for somebody else who asks there, until it is taken again.
    void giveBack();
    void takeAgain();
    /// Takes it where it was not given back and the process is in the foreground, of which shells
    /// do not always tell.
    void resume();

    /// Else somebody else's words are there, over which nothing may be written.
    bool isOnScreen() const;

    /// Else what is typed is for somebody else, and whoever reads it is stopped.
    bool isInForeground() const;

    /// Can be read from when the screen has to be drawn anew, since the process was stopped or the
    /// terminal has another size; -1 without a screen.
    int changes() const;
};

}  // namespace zelvo::platform
