#pragma once

namespace zelvo::platform {

/// Has a terminal give each key at once and without echo, for as long as this lives and the process
/// is in the terminal's foreground; stopped from the keyboard, it gives the terminal back
/// meanwhile. Nothing where the descriptor is no terminal. One at a time in a process.
class [[nodiscard]] KeyMode {
  public:
    /// The descriptor stays the caller's.
    explicit KeyMode(int terminal);
    ~KeyMode();
    KeyMode(const KeyMode&) = delete;
    KeyMode& operator=(const KeyMode&) = delete;
};

}  // namespace zelvo::platform
