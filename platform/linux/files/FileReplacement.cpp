#include "platform/linux/files/FileReplacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSaveFile>
#include <QString>
#include <cerrno>
#include <system_error>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

namespace {

int makeFolders(const std::string& folder) {
    for (auto end = folder.find('/', 1);; end = folder.find('/', end + 1)) {
        if (::mkdir(folder.substr(0, end).c_str(), S_IRWXU) != 0 && errno != EEXIST)
            return errno;
        if (end == folder.npos)
            return 0;
    }
}

}  // namespace

std::string replaceFile(const std::string& path, std::string_view content) {
    const auto folder = path.substr(0, path.rfind('/'));
    if (int error = makeFolders(folder); error != 0)
        return "cannot make " + folder + ": " +
               std::error_code(error, std::generic_category()).message();
    QSaveFile file(QString::fromStdString(path));
    const auto size = static_cast<qint64>(content.size());
    // commit() does not notice where the disk is too full for what it had buffered.
    bool isOpen = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
                  file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (!isOpen || file.write(content.data(), size) != size || !file.commit())
        return "cannot write " + path + ": " + file.errorString().toStdString();
    // Only with this does the new name outlast a power cut.
    FileDescriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory)
        ::fsync(directory.get());
    return {};
}

bool overwriteFile(const std::string& path, std::string_view content) {
    FileDescriptor file(::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    const auto size = static_cast<off_t>(content.size());
    return file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
           size <= status.st_size &&
           ::pwrite(file.get(), content.data(), content.size(), 0) == size &&
           ::ftruncate(file.get(), size) == 0 && ::fsync(file.get()) == 0;
}

}  // namespace zelvo::platform
