#pragma once

#include <functional>
#include <string>

#include "opener/session/Session.h"

namespace zelvo::opener {

/// Says what becomes of a session in lines for scripts, in words that no language changes:
/// "Host: NAME", "State: WORDS", "Digits: 012 345 678 901".
class SessionLines {
  public:
    /// The session outlives this object.
    SessionLines(const Session& session, std::function<void(const std::string& line)> say);

  private:
    void show(const SessionState& state);
    void sayWhenNew(std::string& said, const std::string& line);

    std::function<void(const std::string&)> say_;
    std::string host_, digits_, state_;
    platform::Subscription subscription_;
};

}  // namespace zelvo::opener
