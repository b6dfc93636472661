#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace zelvo::test {

ChildProcess::ChildProcess(const std::string& command) {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return;
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0)
        end(SIGKILL);
    if (output_ >= 0)
        close(output_);
}

std::string ChildProcess::readLine() {
    while (true) {
        if (const auto end = buffer_.find('\n'); end != std::string::npos) {
            const auto line = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            return line;
        }
        pollfd ready{output_, POLLIN, 0};
        std::array<char, 4096> bytes;
        const auto size =
            poll(&ready, 1, 10000) > 0 ? read(output_, bytes.data(), bytes.size()) : 0;
        if (size <= 0)
            return {};
        buffer_.append(bytes.data(), static_cast<std::size_t>(size));
    }
}

std::string ChildProcess::readLineBeginning(const std::string& start) {
    auto line = readLine();
    while (!line.empty() && !line.starts_with(start))
        line = readLine();
    return line;
}

int ChildProcess::end(int number) {
    int status = 0;
    if (number != 0)
        signal(number);
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace zelvo::test
