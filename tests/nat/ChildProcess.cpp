#include "tests/nat/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

extern char** environ;

namespace zelvo::test {

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    if (posix_spawnp(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ) != 0) {
        pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    output_ = ends[0];
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (output_ >= 0) {
        close(output_);
    }
}

std::string ChildProcess::readLine() {
    while (true) {
        const std::size_t end = buffer_.find('\n');
        if (end != std::string::npos) {
            const std::string line = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            return line;
        }
        pollfd ready{output_, POLLIN, 0};
        std::array<char, 4096> bytes;
        if (poll(&ready, 1, 10000) <= 0) {
            return {};
        }
        const ssize_t size = read(output_, bytes.data(), bytes.size());
        if (size <= 0) {
            return {};
        }
        buffer_.append(bytes.data(), static_cast<std::size_t>(size));
    }
}

std::string ChildProcess::readLineBeginning(const std::string& start) {
    std::string line = readLine();
    while (!line.empty() && line.rfind(start, 0) != 0) {
        line = readLine();
    }
    return line;
}

int ChildProcess::terminate() {
    signal(SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace zelvo::test
