#pragma once

#include <unistd.h>

#include <utility>

namespace zelvo::platform {

/// A file descriptor that closes itself.
class [[nodiscard]] FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other)
            reset(std::exchange(other.descriptor_, -1));
        return *this;
    }
    ~FileDescriptor() { reset(); }

    void reset(int descriptor = -1) {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = descriptor;
    }

    /// The descriptor, which is the caller's to close from now on.
    int release() { return std::exchange(descriptor_, -1); }
    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

  private:
    int descriptor_ = -1;
};

}  // namespace zelvo::platform
