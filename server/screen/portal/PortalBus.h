#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/base/EventLoop.h"
#include "platform/linux/base/FileDescriptor.h"

namespace zelvo::server {

/// The user's message bus and on it the desktop's portal. Everything in turns of one loop.
class PortalBus {
  public:
    /// Adds arguments to a call.
    using Arguments = std::function<void(sd_bus_message*)>;
    /// A reply, or null where the call failed.
    using Reply = std::function<void(sd_bus_message* reply)>;
    using Signal = std::function<void(sd_bus_message* signal)>;

    static constexpr const char* service = "org.freedesktop.portal.Desktop";
    static constexpr const char* path = "/org/freedesktop/portal/desktop";

    /// `ended` is called where the bus has gone.
    PortalBus(platform::EventLoop& loop, std::function<void()> ended);
    PortalBus(const PortalBus&) = delete;
    PortalBus& operator=(const PortalBus&) = delete;
    /// What was sent last reaches the bus.
    ~PortalBus();

    /// False where there is no bus.
    explicit operator bool() const { return bus_ != nullptr; }
    /// Our name there in the form that the portal makes paths of.
    std::string senderInPaths() const;

    /// `reply` is called in a later turn, and not at all once this object is destroyed.
    void call(const char* path, const char* interface, const char* method,
              const Arguments& arguments, Reply reply);
    /// Without waiting for a reply.
    void tell(const char* path, const char* interface, const char* method,
              const Arguments& arguments);
    /// For the signals of the portal's objects, for as long as this object lives.
    void subscribe(const char* interface, const char* member, Signal signal);
    /// The name has another owner or none.
    void whenServiceEnds(std::function<void()> ended);

  private:
    struct Handler;

    void process();
    void arm();
    void match(const std::string& rule, Signal signal);

    const std::function<void()> ended_;
    sd_bus* bus_ = nullptr;
    platform::FileDescriptor timer_;
    std::unique_ptr<platform::EventLoop::Watch> busWatch_;
    std::unique_ptr<platform::EventLoop::Watch> timerWatch_;
};

/// "a{sv}" as it is being written, and read.
void openDictionary(sd_bus_message* message);
void closeDictionary(sd_bus_message* message);
/// Entries of the open dictionary.
void addEntry(sd_bus_message* message, const char* key, std::uint32_t value);
void addEntry(sd_bus_message* message, const char* key, bool value);
void addEntry(sd_bus_message* message, const char* key, const std::string& value);
/// Calls `entry` for each, with the message at the value's variant, whose signature is told. An
/// entry that it does not read, which it says by false, is passed over.
void readDictionary(
    sd_bus_message* message,
    const std::function<bool(const std::string& key, const std::string& signature)>& entry);

}  // namespace zelvo::server
