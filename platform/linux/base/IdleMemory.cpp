#include "platform/linux/base/IdleMemory.h"

#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

namespace {

// Of the kernel's 64 bits on a page: in memory or in swap; from a file, or shared.
constexpr std::uint64_t IsThere = 3ULL << 62;
constexpr std::uint64_t IsOfFile = 1ULL << 61;

struct PageMap {
    FileDescriptor file;
    std::uintptr_t pageSize;
    std::vector<std::uint64_t> pages;

    /// Whether each page is as it is in its file. One with a debugger's breakpoint is not, nor one
    /// that the loader or the library itself has changed, and they would not come back.
    bool isUnchanged(std::uintptr_t begin, std::uintptr_t end) {
        pages.resize((end - begin) / pageSize);
        const auto size = pages.size() * sizeof(pages[0]);
        const auto offset = static_cast<off_t>(begin / pageSize * sizeof(pages[0]));
        return ::pread(file.get(), pages.data(), size, offset) == static_cast<ssize_t>(size) &&
               std::none_of(pages.begin(), pages.end(), [](auto page) {
                   return (page & IsThere) != 0 && (page & IsOfFile) == 0;
               });
    }
};

// The loader keeps other threads from loading and unloading meanwhile.
int restObject(dl_phdr_info* object, std::size_t, void* argument) {
    auto& map = *static_cast<PageMap*>(argument);
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0)
            continue;
        const auto address = object->dlpi_addr + segment.p_vaddr;
        const auto begin = address / map.pageSize * map.pageSize;
        const auto end =
            (address + segment.p_memsz + map.pageSize - 1) / map.pageSize * map.pageSize;
        if (map.isUnchanged(begin, end))
            ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }
    return 0;
}

}  // namespace

void restMemory() {
    ::malloc_trim(0);
    PageMap map{FileDescriptor(::open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC)),
                static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE)),
                {}};
    if (map.file)
        ::dl_iterate_phdr(restObject, &map);
}

}  // namespace zelvo::platform
