#include "server/screen/wlroots/SharedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <utility>

namespace zelvo::server {

namespace {

/// We may run with a limit for the log, which would hold for this memory, too.
bool resize(int file, std::size_t size) {
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none{limit.rlim_max, limit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &none);
    const bool isDone = ::ftruncate(file, static_cast<off_t>(size)) == 0;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return isDone;
}

}  // namespace

std::optional<SharedMemory> SharedMemory::make(std::size_t size) {
    platform::FileDescriptor file(
        ::memfd_create("screensharingd", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file || !resize(file.get(), size))
        return std::nullopt;
    // Nobody may take away what we read.
    ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);
    void* data = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (data == MAP_FAILED)
        return std::nullopt;
    return SharedMemory(std::move(file), static_cast<std::byte*>(data), size);
}

SharedMemory::SharedMemory(platform::FileDescriptor file, std::byte* data, std::size_t size)
    : file_(std::move(file)), data_(data), size_(size) {}

SharedMemory::SharedMemory(SharedMemory&& other) noexcept
    : file_(std::move(other.file_)),
      data_(std::exchange(other.data_, nullptr)),
      size_(other.size_) {}

SharedMemory::~SharedMemory() {
    if (data_)
        ::munmap(data_, size_);
}

}  // namespace zelvo::server
