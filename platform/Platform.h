#pragma once

#include <string>

namespace zelvo::platform {

class Alerts;
class AddressParser;
class Application;
class Authorization;
class Bundle;
class DynamicStore;
class Feedback;
class HardwareRegistry;
class Log;
class MainQueue;
class MessageDigest;
class NatPortMapping;
class Pasteboard;
class ProcessInfo;
class ProcessTable;
class PropertyListReader;
class Random;
class RunLoop;
class ServicesDatabase;
class SharingServicePicker;
class SocketTable;
class TextInputSources;
class UrlSession;
class UserDefaults;
class WindowSystem;
class Workspace;

/// Every service that the application needs of an operating system. The services outlive whatever
/// holds this.
struct Platform {
    // Running
    MainQueue& mainQueue;
    RunLoop& runLoop;
    Log& log;

    // The host
    DynamicStore& dynamicStore;
    HardwareRegistry& hardware;
    ServicesDatabase& services;
    SocketTable& sockets;
    ProcessTable& processes;
    ProcessInfo& processInfo;
    TextInputSources& inputSources;
    Random& random;
    MessageDigest& digest;
    AddressParser& addresses;

    // Files and settings
    PropertyListReader& propertyLists;
    UserDefaults& userDefaults;
    Bundle& bundle;

    // The network
    UrlSession& urlSession;
    /// Origin of the sharing service, such as "https://share.example", without a slash at the end.
    std::string sharingServiceOrigin;
    NatPortMapping& natPortMapping;

    // The desktop
    Application& application;
    Alerts& alerts;
    WindowSystem& windowSystem;
    SharingServicePicker& sharingServicePicker;
    Pasteboard& pasteboard;
    Workspace& workspace;
    Authorization& authorization;
    Feedback& feedback;
};

}  // namespace zelvo::platform
