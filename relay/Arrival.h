#pragma once

#include <memory>
#include <string>

#include "relay/Member.h"

namespace zelvo::relay {

/// A client that has not said yet what it wants.
class Arrival final : public Member {
  public:
    Arrival(RelayLoop& loop, std::unique_ptr<Connection> connection);

    void begin() override;

  private:
    void onReady(Connection& connection, bool canRead, bool canWrite) override;
    void onTime() override;
    void letGo() override { connection_.reset(); }
    bool readHead();

    std::unique_ptr<Connection> connection_;
    bool isSecure_ = false;
    std::string input_;
};

/// A client that is told one more thing, and then that this was all.
class Leaver final : public Member {
  public:
    Leaver(RelayLoop& loop, std::unique_ptr<Connection> connection, std::string lastWords);

    void begin() override;

  private:
    void onReady(Connection& connection, bool canRead, bool canWrite) override;
    void onTime() override { retire(); }
    void letGo() override { connection_.reset(); }
    void goOn();

    std::unique_ptr<Connection> connection_;
    std::string lastWords_;
    bool hasSaidEnd_ = false;
};

}  // namespace zelvo::relay
