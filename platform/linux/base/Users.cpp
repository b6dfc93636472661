#include "platform/linux/base/Users.h"

#include <pwd.h>

#include <cerrno>
#include <vector>

namespace zelvo::platform {

namespace {

struct Record {
    std::string name;
    std::string home;
};

std::optional<Record> recordOf(uid_t user) {
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* found = nullptr;
    int error = 0;
    while ((error = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found)) == ERANGE &&
           buffer.size() < std::size_t{1} << 20)
        buffer.resize(buffer.size() * 2);
    if (error != 0 || !found)
        return std::nullopt;
    return Record{found->pw_name, found->pw_dir};
}

}  // namespace

std::optional<std::string> nameOfUser(uid_t user) {
    auto record = recordOf(user);
    return record ? std::optional(record->name) : std::nullopt;
}

std::string homeOfUser(uid_t user) {
    auto record = recordOf(user);
    return record && record->home.starts_with('/') ? record->home : std::string();
}

}  // namespace zelvo::platform
