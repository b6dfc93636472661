#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zelvo::server {

/// What a viewer who is inside says, cut into messages (RFC 6143, section 7.5, and SetDesktopSize
/// of the registry): only whole ones go on, so that nobody inside can keep the VNC side waiting,
/// and only those that are known. Input is left out where it may not pass. Bytes in, bytes out.
class ViewerMessages {
  public:
    /// Text on the clipboard that is larger puts the viewer out.
    static constexpr std::size_t longestText = 1024 * 1024;
    static constexpr std::size_t mostEncodings = 512;

    /// Keys, pointer, clipboard and whatever else changes the host.
    void setInputPasses(bool passes) { inputPasses_ = passes; }

    /// Appends to `to` what may go on. False for good where the viewer says what no viewer says.
    bool receive(std::string_view bytes, std::string& to);

  private:
    enum class Kind { Unknown, Allowed, Input };
    struct Form {
        Kind kind = Kind::Unknown;
        /// 0 while not enough of it is here to tell.
        std::size_t size = 0;
    };

    static Form formOf(std::string_view message);

    bool inputPasses_ = false;
    /// The first byte is ClientInit.
    bool isInitialised_ = false;
    std::string partial_;
};

}  // namespace zelvo::server
