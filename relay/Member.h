#pragma once

#include <event2/event_struct.h>

#include <chrono>
#include <memory>

#include "relay/Connection.h"

namespace zelvo::relay {

class RelayLoop;

/// Something that lives on a loop, and there alone, until it retires.
class Member : public Connection::User {
  public:
    explicit Member(RelayLoop& loop);
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;
    ~Member() override;

    /// Called once, when it is the loop's.
    virtual void begin() = 0;

    /// Is destroyed when the loop gets to it. Its connections end at once, and nothing is called
    /// any more.
    void retire();

  protected:
    virtual void onTime() = 0;
    virtual void letGo() = 0;

    /// Once.
    void startTimer(std::chrono::milliseconds after);
    void stopTimer();

    RelayLoop& loop_;

  private:
    event timer_{};
    bool isRetired_ = false;
};

}  // namespace zelvo::relay
