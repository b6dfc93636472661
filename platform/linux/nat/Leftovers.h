#pragma once

#include <map>
#include <memory>

#include "platform/Log.h"
#include "platform/linux/nat/Conversations.h"
#include "platform/linux/nat/MappingJournal.h"

namespace zelvo::platform {

/// Withdraws what the journal says that earlier runs have left on the router.
class Leftovers {
  public:
    Leftovers(const Conversations& conversations, MappingJournal& journal, Log& log);

    /// Begins with those that this router may hold. Again after each change of the route.
    void begin(const RouterRoute& route);
    /// True when a withdrawal has ended.
    bool advance(NatTime now);
    NatTime nextWake() const;
    /// True while a withdrawal is under way that could take such a mapping with it.
    bool mayTake(const PortWish& wish) const;

  private:
    const Conversations& conversations_;
    MappingJournal& journal_;
    Log& log_;
    /// By their number in the journal.
    std::map<int, MappingRecord> waiting_;
    std::map<int, std::unique_ptr<RouterMapping>> leaving_;
};

}  // namespace zelvo::platform
