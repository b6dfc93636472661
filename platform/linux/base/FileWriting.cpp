#include "platform/linux/base/FileWriting.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

namespace {

int writeAll(int file, std::string_view content) {
    while (!content.empty()) {
        auto written = ::write(file, content.data(), content.size());
        if (written < 0 && errno != EINTR)
            return errno;
        if (written > 0)
            content.remove_prefix(static_cast<std::size_t>(written));
    }
    return ::fsync(file) == 0 ? 0 : errno;
}

}  // namespace

int replaceFile(const std::string& path, std::string_view content) {
    const auto folder = path.substr(0, path.rfind('/') + 1);
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        return errno;
    // mkostemp gives the file to the user alone.
    auto temporary = path + ".XXXXXX";
    FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file)
        return errno;
    int error = writeAll(file.get(), content);
    if (error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0)
        error = errno;
    if (error != 0) {
        ::unlink(temporary.c_str());
        return error;
    }
    // Only with this does the new name outlast a power cut.
    FileDescriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory)
        ::fsync(directory.get());
    return 0;
}

}  // namespace zelvo::platform
