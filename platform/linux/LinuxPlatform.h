#pragma once

#include <functional>
#include <memory>
#include <string>

namespace zelvo::platform {

class AddressParser;
class Authorization;
class Bundle;
class DynamicStore;
class Explanations;
class HardwareRegistry;
class MainQueue;
class MessageDigest;
class NatPortMapping;
class ProcessInfo;
class ProcessTable;
class PropertyListReader;
class Random;
class ServicesDatabase;
class SocketTable;
class SystemLog;
class TextInputSources;
class UrlSession;
class UserDefaults;
struct Environment;

/// The system services of Linux, one of each, in an order in which each may use those before it.
/// The accessors are named as the members of Platform. Main thread only.
///
/// From the construction on SIGPIPE is ignored in the whole process: a write to a peer or a log
/// that has gone is an error of that write.
class LinuxPlatform {
  public:
    /// Reads the process environment once. The queue outlives this object.
    explicit LinuxPlatform(MainQueue& mainQueue);
    LinuxPlatform(const LinuxPlatform&) = delete;
    LinuxPlatform& operator=(const LinuxPlatform&) = delete;
    /// Ends what still runs on workers and waits for them.
    ~LinuxPlatform();

    const Environment& environment() const;
    SystemLog& log();

    DynamicStore& dynamicStore();
    HardwareRegistry& hardware();
    ServicesDatabase& services();
    SocketTable& sockets();
    ProcessTable& processes();
    ProcessInfo& processInfo();
    TextInputSources& inputSources();
    Random& random();
    MessageDigest& digest();
    AddressParser& addresses();

    PropertyListReader& propertyLists();
    UserDefaults& userDefaults();
    Bundle& bundle();

    UrlSession& urlSession();
    /// Without a slash at the end; empty, so that every request fails, when the environment names
    /// an origin that is none.
    std::string sharingServiceOrigin() const;
    NatPortMapping& natPortMapping();

    Authorization& authorization();

    const Explanations& explanations();

    /// `callback` is called soon after the server that Screen Sharing was found on by has ended, be
    /// it that nothing follows it, that it was started anew, or that another takes its place.
    void whenScreenSharingEnds(std::function<void()> callback);

  private:
    struct Services;
    std::unique_ptr<Services> services_;
};

}  // namespace zelvo::platform
