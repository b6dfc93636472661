#pragma once

#include <string>

#include "tests/support/ChildProcess.h"

namespace zelvo::test {

/// A message bus of the test's own.
struct PrivateBus {
    // A path is reached from other network namespaces, too.
    ChildProcess daemon{
        "exec dbus-daemon --session --nofork --nopidfile --address=unix:dir=/tmp --print-address"};
    const std::string address = daemon.readLine();
};

}  // namespace zelvo::test
