#pragma once

#include <string>

namespace zelvo::server {

/// The desktop's leave to show its screen without asking anew, in a file that is the user's alone.
/// Each is good for one start.
class RestoreToken {
  public:
    explicit RestoreToken(std::string file) : file_(std::move(file)) {}

    /// Empty where there is none.
    std::string read() const;
    /// Where that fails the next start asks.
    void keep(const std::string& token) const;
    void drop() const;

  private:
    const std::string file_;
};

}  // namespace zelvo::server
