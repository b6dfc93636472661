#include "platform/linux/machine/ProcProcessTable.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

constexpr std::size_t nameLimit = 16;

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

}  // namespace

ProcProcessTable::ProcProcessTable(std::string procFolder) : procFolder_(std::move(procFolder)) {}

int ProcProcessTable::identifiers(std::vector<std::int32_t>& found) const {
    std::unique_ptr<DIR, CloseFolder> folder(::opendir(procFolder_.c_str()));
    if (!folder)
        return errno;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(folder.get());
        if (!entry)
            break;
        std::string_view name = entry->d_name;
        std::int32_t pid = 0;
        auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (error == std::errc() && end == name.data() + name.size() && pid > 0)
            found.push_back(pid);
    }
    std::sort(found.begin(), found.end());
    return errno;
}

int ProcProcessTable::size(std::size_t& records) const {
    std::vector<std::int32_t> found;
    int error = identifiers(found);
    if (error == 0)
        records = found.size();
    return error;
}

int ProcProcessTable::fetch(std::size_t room, std::vector<ProcessRecord>& records) const {
    std::vector<std::int32_t> found;
    if (int error = identifiers(found); error != 0)
        return error;
    if (found.size() > room)
        return ProcessTableGrown;
    std::vector<ProcessRecord> result;
    result.reserve(found.size());
    for (auto pid : found) {
        auto command = readTextFile(procFolder_ + "/" + std::to_string(pid) + "/comm");
        if (!command)
            continue;
        if (command->ends_with('\n'))
            command->pop_back();
        if (command->size() > nameLimit)
            command->resize(nameLimit);
        result.push_back({std::move(*command), pid});
    }
    records = std::move(result);
    return 0;
}

}  // namespace zelvo::platform
