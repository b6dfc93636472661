#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace zelvo::platform {

/// A connection by TLS to a peer whose certificate was verified; it never blocks. One thread.
class TlsConnection {
  public:
    /// Both are libcurl's; the handle is connected and in the multi handle, which outlives this
    /// object.
    TlsConnection(void* multi, void* handle);
    TlsConnection(const TlsConnection&) = delete;
    TlsConnection& operator=(const TlsConnection&) = delete;
    /// Hangs up.
    ~TlsConnection();

    /// Readable or writable only tells that something may have changed: bytes that TLS holds show
    /// in no poll, so read until there are none.
    int descriptor() const { return descriptor_; }
    /// How many bytes came; 0 at the end, none where there are none now.
    std::optional<std::size_t> read(std::span<char> to);
    /// How many bytes went; none where none ever will again.
    std::optional<std::size_t> write(std::string_view bytes);
    /// Nothing more is written. Hanging up while the peer talks could take back what was.
    void sayEnd() const;

  private:
    void* const multi_;
    void* const handle_;
    int descriptor_ = -1;
};

}  // namespace zelvo::platform
