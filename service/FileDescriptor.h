#pragma once

#include <unistd.h>

#include <utility>

namespace zelvo::service {

/// Owns a file descriptor; -1 is none.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() {
        if (number_ >= 0)
            close(number_);
    }

    int get() const { return number_; }

  private:
    int number_ = -1;
};

}  // namespace zelvo::service
