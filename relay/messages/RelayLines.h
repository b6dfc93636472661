#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace zelvo::relay {

/// What relay and host say once the host is registered: a line each.
struct Line {
    enum class Kind {
        Ping,
        Pong,
        Viewer,  ///< text: the token, address: where the viewer comes from
        Lease,   ///< text: the lease
        Other,   ///< one that is not known, or not as it should be
    };

    static constexpr std::size_t Longest = 512;  ///< with its end

    Kind kind = Kind::Other;
    std::string text = {};
    std::string address = {};
};

/// Takes a line without its end.
Line readLine(std::string_view line);
/// With its end.
std::string textOf(const Line& line);

/// Cuts what comes into lines.
class LineReader {
  public:
    /// Hands on each line that is complete. False when one is too long, or not ASCII: there is
    /// nothing more to be read from this peer. The function may stop it by false, too.
    bool receive(std::string_view bytes, const std::function<bool(const Line&)>& hear);

  private:
    std::string begun_;
};

}  // namespace zelvo::relay
