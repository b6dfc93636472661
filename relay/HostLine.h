#pragma once

#include <memory>
#include <string>

#include "relay/Member.h"
#include "relay/messages/RelayLines.h"
#include "relay/tickets/Tickets.h"

namespace zelvo::relay {

/// A host's own connection, over which it hears who wants in.
class HostLine final : public Member {
  public:
    struct Host {
        int number = 0;
        std::string name;  ///< as leases name it
        std::string owner;
    };

    /// Its shares have been taken, and go back with it.
    HostLine(RelayLoop& loop, std::unique_ptr<Connection> connection, Host host);
    ~HostLine() override;

    void begin() override;
    void say(const std::string& text);

  private:
    void onReady(Connection& connection, bool canRead, bool canWrite) override;
    void onTime() override;
    void letGo() override;

    bool listen();
    bool flush();
    std::string freshLease();

    std::unique_ptr<Connection> connection_;
    const Host host_;
    const std::string client_;
    LineReader lines_;
    std::string output_;
    int unheard_ = 0;  ///< pings since the last word
    Moment leaseMade_ = 0;
};

}  // namespace zelvo::relay
