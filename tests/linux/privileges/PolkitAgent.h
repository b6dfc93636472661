#pragma once

#include <sys/types.h>

#include <string>

namespace zelvo::test {

/// What a desktop has to ask the user for polkit: a process that lasts as long as this object.
class PolkitAgent {
  public:
    /// Fails: the user gives no valid password.
    enum class Manner { Grants, Fails, Dismisses };

    /// Answers questions for what that process of that user wants.
    PolkitAgent(pid_t process, uid_t user, Manner manner, const char* locale = "en_GB.UTF-8");
    PolkitAgent(const PolkitAgent&) = delete;
    PolkitAgent& operator=(const PolkitAgent&) = delete;
    ~PolkitAgent() { questions(); }

    /// Ends it. The action and the text of each question, one a line.
    std::string questions();

  private:
    pid_t agent_ = -1;
    int reports_ = -1;
};

}  // namespace zelvo::test
