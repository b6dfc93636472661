#pragma once

#include <csignal>
#include <string>

namespace zelvo::test {

/// A shell command that ends with this object. Its standard output is read line by line.
class ChildProcess {
  public:
    /// Begins with "exec" where the signals are for the program and not for the shell.
    explicit ChildProcess(const std::string& command);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// The next line; empty at the end, and when none comes within ten seconds.
    std::string readLine();
    /// Skips lines until one begins so.
    std::string readLineBeginning(const std::string& start);
    void signal(int number) const { kill(pid_, number); }
    /// Sends the signal, 0 for none, and waits for the end: the exit status, or minus the signal
    /// that ended it.
    int end(int number = SIGTERM);
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string buffer_;
};

}  // namespace zelvo::test
