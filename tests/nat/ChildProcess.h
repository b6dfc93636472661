#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace zelvo::test {

/// A program that ends with the test. Its standard output is read line by line.
class ChildProcess {
  public:
    explicit ChildProcess(const std::vector<std::string>& arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// The next line; empty when none comes within ten seconds.
    std::string readLine();
    /// Skips lines until one begins so.
    std::string readLineBeginning(const std::string& start);
    void signal(int number) { kill(pid_, number); }
    /// Sends SIGTERM and gives the exit status; negative for a death by signal.
    int terminate();

  private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string buffer_;
};

}  // namespace zelvo::test
