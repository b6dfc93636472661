#pragma once

#include <unistd.h>

#include <utility>

namespace zelvo::router {

/// A descriptor with its close.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

  private:
    int descriptor_ = -1;
};

}  // namespace zelvo::router
