#include "platform/linux/privileges/DetachedProcess.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::platform {

namespace {

std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (const auto& text : texts)
        result.push_back(const_cast<char*>(text.c_str()));
    result.push_back(nullptr);
    return result;
}

// From here to the next mark everything runs between fork and exec of a process with threads, where
// only async-signal-safe functions may be called and no memory be taken.

[[noreturn]] void report(int pipe, int error) {
    (void)!::write(pipe, &error, sizeof error);
    ::_exit(127);
}

[[noreturn]] void execute(char* const* arguments, char* const* environment, int output, int pipe) {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        ::sigaction(number, &standard, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);

    int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0 || ::dup2(null, STDIN_FILENO) < 0)
        report(pipe, errno);
    if (output >= 0 && (::dup2(output, STDOUT_FILENO) < 0 || ::dup2(output, STDERR_FILENO) < 0))
        report(pipe, errno);
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    ::execve(arguments[0], arguments, environment);
    report(pipe, errno);
}

[[noreturn]] void startAndLeave(char* const* arguments, char* const* environment, int output,
                                int pipe) {
    if (::setsid() < 0)
        report(pipe, errno);
    auto program = ::fork();
    if (program < 0)
        report(pipe, errno);
    if (program == 0)
        execute(arguments, environment, output, pipe);
    ::_exit(0);
}

// The mark.

}  // namespace

int startDetached(const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment, int output) {
    auto argumentPointers = pointers(arguments);
    auto environmentPointers = pointers(environment);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);

    auto child = ::fork();
    if (child < 0)
        return errno;
    if (child == 0)
        startAndLeave(argumentPointers.data(), environmentPointers.data(), output, writing.get());
    writing.reset();
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    int error = 0;
    ssize_t count = 0;
    do {
        count = ::read(reading.get(), &error, sizeof error);
    } while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(sizeof error) ? error : 0;
}

}  // namespace zelvo::platform
