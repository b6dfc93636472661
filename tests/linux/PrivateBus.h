#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace zelvo::test {

/// A message bus of the test's own.
class PrivateBus {
  public:
    PrivateBus() {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(ends[1], 3);
            ::execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile",
                     // A path is reached from other network namespaces, too.
                     "--address=unix:dir=/tmp", "--print-address=3", nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
        char c = 0;
        while (::read(ends[0], &c, 1) == 1 && c != '\n')
            address += c;
        ::close(ends[0]);
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus() {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
    void stop(bool stopped) const { ::kill(pid_, stopped ? SIGSTOP : SIGCONT); }

    std::string address;

  private:
    pid_t pid_ = -1;
};

}  // namespace zelvo::test
