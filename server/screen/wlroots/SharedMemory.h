#pragma once

#include <cstddef>
#include <optional>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::server {

/// Memory that is shared with the compositor, by its descriptor. Its size never changes.
class [[nodiscard]] SharedMemory {
  public:
    /// None without memory.
    static std::optional<SharedMemory> make(std::size_t size);
    SharedMemory(SharedMemory&& other) noexcept;
    SharedMemory& operator=(SharedMemory&&) = delete;
    ~SharedMemory();

    std::byte* data() const { return data_; }
    std::size_t size() const { return size_; }
    int descriptor() const { return file_.get(); }

  private:
    SharedMemory(platform::FileDescriptor file, std::byte* data, std::size_t size);

    platform::FileDescriptor file_;
    std::byte* data_;
    std::size_t size_;
};

}  // namespace zelvo::server
