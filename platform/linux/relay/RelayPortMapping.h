#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/MainQueue.h"
#include "platform/NatPortMapping.h"
#include "platform/WayIn.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/relay/RelayOffer.h"
#include "platform/linux/relay/RelayWorker.h"

namespace zelvo::platform {

/// The way in: by the router where it gives one that leads here, else by a relay of the sharing
/// service, whose address and number then take the place of the router's address and port. A relay
/// is asked where the router has said nothing for four seconds, where it refuses, and where what it
/// maps is not the address that the service sees. A user who prefers relays has one asked first,
/// and no port of the router opened unless there is none. Who comes by a relay is brought to the
/// screen server. Main thread only.
class RelayPortMapping final : public NatPortMapping {
  public:
    /// How the relay that was taken stands.
    struct Way {
        /// Empty where none was taken.
        std::string relay{};
        bool isUp = false;
        /// It has another number for us, or another address, than the one that was answered.
        bool hasMoved = false;
        /// The user prefers a relay, and there is none to be had.
        bool isMissed = false;
    };
    struct Options {
        std::string certificateFile;
        /// Whether nobody can come to that address from the internet; host byte order.
        std::function<bool(std::uint32_t address)> isPrivate;
        /// What the user wants when a request begins.
        std::function<RelayUse()> use;
        /// Asks the service for the relay that is wanted, or any; answers once, later.
        std::function<void(const std::string& wanted,
                           std::function<void(const std::optional<RelayOffer>&)>)>
            ask;
        /// A connection to the screen server for somebody from that address; empty where there is
        /// none.
        std::function<FileDescriptor(const std::string& origin)> connect;
        /// Hears each change; first, when a request begins, that no relay is taken.
        std::function<void(const Way&)> told;
        std::chrono::milliseconds patience = std::chrono::seconds(4);
        /// A relay that was taken is tried again after one to six of them, then after four to
        /// eight each time.
        std::chrono::milliseconds pauseUnit = std::chrono::seconds(1);
    };

    /// Both outlive this object.
    RelayPortMapping(MainQueue& mainQueue, NatPortMapping& router, Options options);
    ~RelayPortMapping() override;

    std::int32_t create(std::unique_ptr<NatPortMappingReference>& reference,
                        const NatPortMappingRequest& request, Callback callback) override;

  private:
    class Attempt;
    class Reference;

    RelayHost::Told workersWords();
    /// Has it done on the main thread with the attempt whose round it is, if there still is one.
    void tell(int round, std::function<void(Attempt&)> what);

    MainQueue& mainQueue_;
    NatPortMapping& router_;
    const Options options_;
    int lastRound_ = 0;
    std::weak_ptr<Attempt> attempt_;
    /// By which what was queued sees that this object has gone.
    std::shared_ptr<RelayPortMapping*> self_;
    // Last: it tells until it has ended.
    RelayWorker worker_;
};

}  // namespace zelvo::platform
