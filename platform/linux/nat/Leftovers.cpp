#include "platform/linux/nat/Leftovers.h"

#include <algorithm>

namespace zelvo::platform {

Leftovers::Leftovers(const Conversations& conversations, MappingJournal& journal, Log& log)
    : conversations_(conversations), journal_(journal), log_(log), waiting_(journal.abandoned()) {}

void Leftovers::begin() {
    std::erase_if(waiting_, [this](int id) {
        const auto record = journal_.records().find(id);
        if (record == journal_.records().end()) {
            return true;
        }
        auto mapping = conversations_.makeWithdrawal(record->second);
        if (!mapping) {
            return false;
        }
        leaving_[id] = std::move(mapping);
        return true;
    });
}

void Leftovers::beginAll() {
    for (const int id : journal_.abandoned()) {
        if (!leaving_.contains(id)) {
            waiting_.insert(id);
        }
    }
    begin();
}

bool Leftovers::advance(NatTime now) {
    const auto ended = std::erase_if(leaving_, [this, now](const auto& entry) {
        const auto& [id, mapping] = entry;
        if (mapping->nextWake() <= now) {
            mapping->wake();
        }
        if (mapping->phase() != RouterMapping::Phase::Over) {
            return false;
        }
        const std::string port = std::to_string(mapping->record().internalPort);
        const std::string protocol(mapping->protocol());
        if (mapping->withdrawn()) {
            journal_.remove(id);
            log_.line("Port mapping: " + protocol + " has withdrawn what was left for port " +
                      port);
        } else {
            log_.line("Port mapping: " + protocol +
                      ": the router has not confirmed the withdrawal of what was left for port " +
                      port);
        }
        return true;
    });
    return ended > 0;
}

NatTime Leftovers::nextWake() const {
    NatTime next = Never;
    for (const auto& [id, mapping] : leaving_) {
        next = std::min(next, mapping->nextWake());
    }
    return next;
}

bool Leftovers::mayTake(const PortWish& wish) const {
    return std::any_of(leaving_.begin(), leaving_.end(), [&wish](const auto& entry) {
        const MappingRecord record = entry.second->record();
        // UPnP names a mapping by its external port, the others by its internal one.
        return record.protocol == "UPnP"
                   ? std::find(record.externalPorts.begin(), record.externalPorts.end(),
                               wish.externalPort) != record.externalPorts.end()
                   : record.internalPort == wish.internalPort;
    });
}

}  // namespace zelvo::platform
