#include "platform/linux/nat/MappingJournal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <sstream>

namespace zelvo::platform {

namespace {

constexpr const char* FilePrefix = "port-mappings.";
/// Not found by the search for the former.
constexpr const char* TemporaryPrefix = "new-port-mappings.";
constexpr std::int64_t SecondsToWrite = 60;
constexpr std::size_t LongestFile = 64 * 1024;
constexpr std::size_t MostRecords = 64;
/// No router is expected to remember for longer.
constexpr std::chrono::hours LongestMemory{24 * 30};

std::int64_t secondsNow() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

/// What a process that died while it wrote has left.
void removeStale(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && status.st_mtime < secondsNow() - SecondsToWrite) {
        unlink(path.c_str());
    }
}

std::string readLimited(int descriptor) {
    std::string text(LongestFile, '\0');
    const ssize_t size = read(descriptor, text.data(), text.size());
    text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return text;
}

}  // namespace

MappingJournal::MappingJournal(const std::string& folder, Log& log) : folder_(folder), log_(log) {
    if (folder_.empty()) {
        return;
    }
    std::error_code error;
    std::filesystem::create_directories(folder_, error);
    if (error) {
        log_.line("Port mapping: no journal in " + folder_ + ": " + error.message());
        folder_.clear();
        return;
    }
    std::random_device device;
    ownNumber_ = std::to_string(device()) + std::to_string(device());
    path_ = folder_ + "/" + FilePrefix + ownNumber_;
    takeOver();
}

int MappingJournal::add(MappingRecord record) {
    record.writtenAt = secondsNow();
    // A cable that comes and goes leaves the same behind again and again.
    std::erase_if(abandoned_, [this, &record](int id) {
        return record.covers(records_.at(id)) && records_.erase(id) > 0;
    });
    records_[nextId_] = std::move(record);
    write();
    return nextId_++;
}

void MappingJournal::remove(int id) {
    abandoned_.erase(id);
    if (records_.erase(id) > 0) {
        write();
    }
}

void MappingJournal::takeOver() {
    std::error_code error;
    std::vector<std::pair<std::string, FileDescriptor>> taken;
    for (auto entry = std::filesystem::directory_iterator(folder_, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string path = entry->path().string();
        const std::string name = entry->path().filename().string();
        if (name.starts_with(TemporaryPrefix)) {
            removeStale(path);
        } else if (name.starts_with(FilePrefix)) {
            if (FileDescriptor file = takeOverFile(path)) {
                taken.emplace_back(path, std::move(file));
            }
        }
    }
    // First they stand in our own file, then theirs may go.
    if (!taken.empty() && write()) {
        for (const auto& [path, file] : taken) {
            unlink(path.c_str());
        }
    }
}

FileDescriptor MappingJournal::takeOverFile(const std::string& path) {
    FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    // One that is locked belongs to a process that lives; one without a name has just been replaced
    // by its owner.
    if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0 || fstat(file.get(), &status) != 0 ||
        !S_ISREG(status.st_mode) || status.st_nlink == 0) {
        return {};
    }
    const std::int64_t oldest = secondsNow() - std::chrono::seconds(LongestMemory).count();
    std::istringstream lines(readLimited(file.get()));
    for (std::string line; std::getline(lines, line) && records_.size() < MostRecords;) {
        const auto record = MappingRecord::parse(line);
        if (record && record->writtenAt > oldest) {
            abandoned_.insert(nextId_);
            records_[nextId_++] = *record;
        }
    }
    return file;
}

bool MappingJournal::write() {
    if (folder_.empty()) {
        return true;
    }
    if (records_.empty()) {
        unlink(path_.c_str());
        file_ = FileDescriptor();
        return true;
    }
    const std::string temporary = folder_ + "/" + TemporaryPrefix + ownNumber_;
    if (writeFile(temporary)) {
        return true;
    }
    unlink(temporary.c_str());
    log_.line("Port mapping: the journal " + path_ + " cannot be written");
    return false;
}

bool MappingJournal::writeFile(const std::string& temporary) {
    FileDescriptor file(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    // The lock comes before the name, so that nobody finds the file without it.
    if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    std::string text;
    for (const auto& [id, record] : records_) {
        text += record.text() + "\n";
    }
    if (::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fdatasync(file.get()) != 0 || rename(temporary.c_str(), path_.c_str()) != 0) {
        return false;
    }
    file_ = std::move(file);
    // Only with this does the new name outlast a power cut.
    const FileDescriptor folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) {
        fsync(folder.get());
    }
    return true;
}

}  // namespace zelvo::platform
