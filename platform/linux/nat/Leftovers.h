#pragma once

#include <map>
#include <memory>
#include <set>

#include "platform/Log.h"
#include "platform/linux/nat/Conversations.h"
#include "platform/linux/nat/MappingJournal.h"

namespace zelvo::platform {

/// Withdraws what the journal says that nobody holds any more: what earlier runs have left, and in
/// the end what this one could not withdraw at once.
class Leftovers {
  public:
    Leftovers(const Conversations& conversations, MappingJournal& journal, Log& log);

    /// Begins with those of earlier runs that are in reach. Again after each change of the route.
    void begin();
    /// Begins with all that are in reach, those that have failed before among them.
    void beginAll();
    /// True when a withdrawal has ended.
    bool advance(NatTime now);
    NatTime nextWake() const;
    bool isIdle() const { return leaving_.empty(); }
    /// True while a withdrawal is under way that could take such a mapping with it.
    bool mayTake(const PortWish& wish) const;

  private:
    const Conversations& conversations_;
    MappingJournal& journal_;
    Log& log_;
    /// By their number in the journal.
    std::set<int> waiting_;
    std::map<int, std::unique_ptr<RouterMapping>> leaving_;
};

}  // namespace zelvo::platform
