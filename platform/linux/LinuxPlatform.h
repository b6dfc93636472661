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
class Preferences;
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
class Viewers;
class WayIn;
struct Environment;
template <typename T>
class Observable;

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

    Viewers& viewers();

    WayIn& wayIn();

    Preferences& preferences();

    /// To be called once it is certain that the application ends: the screen server ends at once,
    /// and nothing that the application waits for takes long from then on.
    void quitBegins();

    /// `callback` is called soon after the screen server has ended, be it that nothing follows it
    /// or that it is being started anew.
    void whenScreenSharingEnds(std::function<void()> callback);

    /// Whether the enable tool was started from here and has neither succeeded nor failed yet.
    const Observable<bool>& enableToolWorks() const;

  private:
    struct Services;
    std::unique_ptr<Services> services_;
};

}  // namespace zelvo::platform
