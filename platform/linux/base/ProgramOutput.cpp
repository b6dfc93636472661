#include "platform/linux/base/ProgramOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/ProcessDescriptor.h"

namespace zelvo::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t outputLimit = std::size_t{1} << 20;

pid_t spawn(const std::vector<std::string>& arguments, int output) {
    std::vector<char*> pointers;
    for (const auto& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // The application ignores SIGPIPE, which a program inherits.
    sigset_t standard;
    sigemptyset(&standard);
    posix_spawnattr_setsigmask(&attributes, &standard);
    sigaddset(&standard, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &standard);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    pid_t child = -1;
    if (::posix_spawnp(&child, pointers[0], &files, &attributes, pointers.data(), environ) != 0)
        child = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return child;
}

/// All that comes until the end; none when that is not reached within the limits.
std::optional<std::string> readToEnd(int file, Clock::time_point end) {
    std::string output;
    std::array<char, 4096> part{};
    for (;;) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waiting{file, POLLIN, 0};
        auto ready = left <= 0 ? 0 : ::poll(&waiting, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR)
            continue;
        auto count = ready > 0 ? ::read(file, part.data(), part.size()) : -1;
        if (count == 0)
            return output;
        if (count < 0 || output.size() + static_cast<std::size_t>(count) > outputLimit)
            return std::nullopt;
        output.append(part.data(), static_cast<std::size_t>(count));
    }
}

/// A program that has closed its output may still run.
bool endsBy(pid_t child, Clock::time_point end) {
    auto process = processDescriptor(child);
    for (;;) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waiting{process.get(), POLLIN, 0};
        auto ready = ::poll(&waiting, 1, left <= 0 ? 0 : static_cast<int>(left));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

}  // namespace

std::optional<std::string> programOutput(const std::vector<std::string>& arguments,
                                         std::chrono::milliseconds limit) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    auto child = spawn(arguments, writing.get());
    if (child < 0)
        return std::nullopt;
    writing.reset();
    const auto end = Clock::now() + limit;
    auto output = readToEnd(reading.get(), end);
    if (!output || !endsBy(child, end))
        ::kill(child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0 ? output : std::nullopt;
}

}  // namespace zelvo::platform
