#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>

namespace zelvo::test {

/// A shell command that ends with this object. Its standard output is read line by line.
class ChildProcess {
  public:
    /// Begins with "exec" where the signals are for the program and not for the shell.
    explicit ChildProcess(const std::string& command) {
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
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() {
        if (pid_ > 0)
            end(SIGKILL);
        if (output_ >= 0)
            close(output_);
    }

    /// The next line; empty at the end, and when none comes within ten seconds.
    std::string readLine() {
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
    /// Skips lines until one begins so.
    std::string readLineBeginning(const std::string& start) {
        auto line = readLine();
        while (!line.empty() && !line.starts_with(start))
            line = readLine();
        return line;
    }
    void signal(int number) const { kill(pid_, number); }
    /// Sends the signal, 0 for none, and waits for the end: the exit status, or minus the signal
    /// that ended it.
    int end(int number = SIGTERM) {
        int status = 0;
        if (number != 0)
            signal(number);
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string buffer_;
};

}  // namespace zelvo::test
