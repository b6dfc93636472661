#include "platform/linux/machine/NssServicesDatabase.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

namespace zelvo::platform {

namespace {

// The file is looked at each time; other sources than it hardly ever change.
constexpr std::chrono::seconds keptFor{60};
constexpr std::size_t answersKept = 16;

std::int64_t databaseChanged() {
    struct stat status {};
    if (::stat("/etc/services", &status) != 0)
        return 0;
    return std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
}

std::optional<std::uint16_t> lookUp(const std::string& service) {
    std::vector<char> buffer(1024);
    servent entry{};
    servent* found = nullptr;
    int error = 0;
    while ((error = ::getservbyname_r(service.c_str(), "tcp", &entry, buffer.data(), buffer.size(),
                                      &found)) == ERANGE &&
           buffer.size() < std::size_t{1} << 20)
        buffer.resize(buffer.size() * 2);
    if (error != 0 || !found)
        return std::nullopt;
    return ntohs(static_cast<std::uint16_t>(found->s_port));
}

}  // namespace

std::optional<std::uint16_t> NssServicesDatabase::tcpPort(const std::string& service) const {
    auto changed = databaseChanged();
    auto now = std::chrono::steady_clock::now();
    std::lock_guard lock(mutex_);
    if (auto known = answers_.find(service); known != answers_.end() &&
                                             known->second.fileChanged == changed &&
                                             now - known->second.time < keptFor)
        return known->second.port;
    if (answers_.size() >= answersKept)
        answers_.clear();
    auto port = lookUp(service);
    answers_[service] = {port, changed, now};
    return port;
}

}  // namespace zelvo::platform
