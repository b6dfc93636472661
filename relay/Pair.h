#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "relay/Member.h"
#include "relay/NumberBook.h"
#include "relay/messages/RelayHeads.h"

namespace zelvo::relay {

/// A viewer, and soon the connection that its host makes for it: what one says the other hears.
class Pair final : public Member {
  public:
    /// What of the viewer's own words came with the request is the host's to hear, too.
    Pair(RelayLoop& loop, std::unique_ptr<Connection> viewer, const ViewerRequest& request,
         const std::string& rest, std::string token, std::shared_ptr<HostAccount> account);
    ~Pair() override;

    void begin() override;
    /// The host is here.
    void join(std::unique_ptr<Connection> host, const std::string& rest);

    /// How firmly the viewer holds its place at the host.
    enum class Hold {
        Silent,      ///< it has said nothing since its request
        Unanswered,  ///< it has, but the host has had time to answer, and has not
        Firm,
    };
    Hold hold() const;
    const std::string& client() const { return client_; }
    /// Ends, for somebody else to have the place.
    void giveWay();

  private:
    struct Side {
        std::unique_ptr<Connection> connection;
        std::string unsent;  ///< for this side, which is not ready to take it
        bool hasEnded = false;
        bool isDeaf = false;  ///< it has gone, but what it said before may still be there
    };

    void onReady(Connection& connection, bool canRead, bool canWrite) override;
    void onTime() override;
    void letGo() override;

    /// False where the pair is at its end.
    bool pump(Side& from, Side& to);
    bool canPump(const Side& from, const Side& to) const;
    void flush(Side& side);
    bool charge(std::size_t bytes);
    void note(const Side& from, std::string_view bytes);
    void goOn();

    Side viewer_;
    Side host_;
    const std::string token_;
    const std::string client_;
    const std::shared_ptr<HostAccount> account_;
    event resume_{};
    bool rests_ = false;
    std::optional<std::chrono::steady_clock::time_point>
        spoke_;  ///< the viewer, for the first time
    bool hostHasGreeted_ = false;
    bool isAnswered_ = false;
};

}  // namespace zelvo::relay
