#pragma once

#include <unistd.h>

#include <utility>

namespace zelvo::platform {

/// A descriptor with its close.
class OwnedDescriptor {
  public:
    OwnedDescriptor() = default;
    explicit OwnedDescriptor(int descriptor) : descriptor_(descriptor) {}
    OwnedDescriptor(OwnedDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~OwnedDescriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

  private:
    int descriptor_ = -1;
};

}  // namespace zelvo::platform
