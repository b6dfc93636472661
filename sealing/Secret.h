#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace zelvo::sealing {

/// Overwrites what must not stay in memory, also where the compiler sees nobody read it again.
void wipe(std::span<unsigned char> bytes);

/// Bytes that are gone from memory with their owner.
template <std::size_t Size>
class [[nodiscard]] Secret {
  public:
    Secret() = default;
    Secret(const Secret&) = default;
    Secret& operator=(const Secret&) = default;
    ~Secret() { wipe(bytes_); }

    static constexpr std::size_t size = Size;

    std::span<unsigned char, Size> bytes() { return bytes_; }
    std::span<const unsigned char, Size> bytes() const { return bytes_; }
    std::string_view view() const { return {reinterpret_cast<const char*>(bytes_.data()), Size}; }

  private:
    std::array<unsigned char, Size> bytes_{};
};

using Key = Secret<32>;

}  // namespace zelvo::sealing
