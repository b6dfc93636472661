#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace zelvo::test {

/// A machine with polkit and an installed helper: a mount namespace of the test process, with a
/// system bus, a real polkitd and users of its own. Nothing of it is seen outside, or outlives the
/// process.
class PolkitMachine {
  public:
    /// Polkit grants the first everything, refuses the second, and asks about the third.
    static constexpr uid_t granted = 61201;
    static constexpr uid_t refused = 61202;
    static constexpr uid_t asked = 61203;

    static constexpr const char* helper = "/mnt/helper";
    /// The installed tools. Started, they tell in the answer who and where they are.
    static constexpr const char* tools = "/mnt/share/zelvo/resources";
    /// A private folder of the user "granted".
    static constexpr const char* ownFolder = "/mnt/own";

    PolkitMachine() = default;
    PolkitMachine(const PolkitMachine&) = delete;
    PolkitMachine& operator=(const PolkitMachine&) = delete;
    ~PolkitMachine();

    /// Why there is no such machine; empty when it runs.
    std::string start();
    void startBus();
    void stopBus();

    /// What a tool that was started tells: its words and its environment, one a line, up to "end",
    /// and then what came to the journal. Waits for it.
    std::string answer() const;
    /// Whether no tool that has not been asked for its answer was started.
    bool isQuiet() const;

  private:
    void install();

    pid_t bus_ = -1;
    int answer_ = -1;
    int journal_ = -1;
};

/// Does the work in a process of that user, in a session without a terminal, and returns its
/// result. `prepare` is called before, with the process's id.
std::string asUser(uid_t user, const std::function<std::string()>& work,
                   const std::function<void(pid_t)>& prepare = {});

std::string readToEnd(int descriptor);

}  // namespace zelvo::test
