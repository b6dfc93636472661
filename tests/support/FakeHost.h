#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/AddressParser.h"
#include "platform/Bundle.h"
#include "platform/DynamicStore.h"
#include "platform/HardwareRegistry.h"
#include "platform/MessageDigest.h"
#include "platform/ProcessInfo.h"
#include "platform/ProcessTable.h"
#include "platform/PropertyListReader.h"
#include "platform/Random.h"
#include "platform/ServicesDatabase.h"
#include "platform/SocketTable.h"
#include "platform/TextInputSources.h"
#include "platform/UserDefaults.h"
#include "tests/support/ManualLoop.h"

namespace zelvo::test {

using platform::PropertyList;

/// A socket table made of text: every question gets the whole listing.
class FakeSocketTable : public platform::SocketTable {
  public:
    platform::SocketListing tcpSockets(platform::SocketFamily family,
                                       platform::SocketState) const override {
        ++asked;
        lastFamily = family;
        return failure.empty() ? platform::SocketListing{listing, {}}
                               : platform::SocketListing{std::nullopt, failure};
    }

    void listen(bool on) { set("tcp4 0 0 *.5900 *.* LISTEN\n", on); }
    void connect(bool on) { set("tcp4 0 0 192.0.2.1.5900 203.0.113.9.40112 ESTABLISHED\n", on); }

    std::string listing;
    std::string failure;
    mutable int asked = 0;
    mutable platform::SocketFamily lastFamily{};

  private:
    void set(const std::string& line, bool on) {
        if (auto at = listing.find(line); at != std::string::npos)
            listing.erase(at, line.size());
        if (on)
            listing += line;
    }
};

/// A process table that may grow between the question for its size and the reading.
class FakeProcessTable : public platform::ProcessTable {
  public:
    int size(std::size_t& count) const override {
        ++sizeAsked;
        count = growth > 0 ? 0 : records.size();
        return sizeError;
    }
    int fetch(std::size_t room, std::vector<platform::ProcessRecord>& result) const override {
        if (fetchError != 0)
            return fetchError;
        if (growth > 0)
            --growth;
        if (room < records.size())
            return platform::ProcessTableGrown;
        result = records;
        return 0;
    }

    std::vector<platform::ProcessRecord> records;
    int sizeError = 0;
    int fetchError = 0;
    /// How many times the table still grows under the reader's hands.
    mutable int growth = 0;
    mutable int sizeAsked = 0;
};

class FakeDynamicStore : public platform::DynamicStore {
  public:
    std::unique_ptr<platform::DynamicStoreConnection> create(const std::string&,
                                                             Callback callback) override {
        if (!opens)
            return nullptr;
        return std::make_unique<Connection>(*this, std::move(callback));
    }
    std::string keyCreateComputerName() const override { return "key:computer"; }
    std::string keyCreateHostNames() const override { return "key:hosts"; }
    std::optional<std::string> localizedHostName() const override { return localizedName; }

    /// Sends a notice with these keys to every connection that listens for one of them.
    void notify(const std::vector<std::string>& keys) {
        for (auto* connection : std::vector(connections_)) {
            std::vector<std::string> wanted;
            for (const auto& key : keys)
                if (std::find(connection->keys.begin(), connection->keys.end(), key) !=
                    connection->keys.end())
                    wanted.push_back(key);
            if (connection->delivers && !wanted.empty())
                connection->callback(wanted);
        }
    }

    bool opens = true;
    std::optional<std::string> computerName = "Anna's Computer";
    std::optional<std::string> localHostName = "annas-computer";
    std::optional<std::string> localizedName;

  private:
    struct Connection : platform::DynamicStoreConnection {
        Connection(FakeDynamicStore& store, Callback callback)
            : store(store), callback(std::move(callback)) {
            store.connections_.push_back(this);
        }
        ~Connection() override { std::erase(store.connections_, this); }

        std::optional<std::string> copyComputerName() override { return store.computerName; }
        std::optional<std::string> copyLocalHostName() override { return store.localHostName; }
        void setNotificationKeys(const std::vector<std::string>& wanted) override { keys = wanted; }
        void setMainQueue() override { delivers = true; }

        FakeDynamicStore& store;
        Callback callback;
        std::vector<std::string> keys;
        bool delivers = false;
    };
    std::vector<Connection*> connections_;
};

class FakeHardwareRegistry : public platform::HardwareRegistry {
  public:
    platform::InterfaceMatch matchInterface(const std::string& bsdName) const override {
        lastInterface = bsdName;
        return match;
    }
    platform::DeviceTreeSearch searchDeviceTree(const std::string& property) const override {
        lastProperty = property;
        return deviceTree;
    }
    std::string machineModel() const override { return "Model 1"; }

    void setAddress(std::vector<unsigned char> bytes) {
        std::vector<std::byte> address;
        for (auto byte : bytes)
            address.push_back(static_cast<std::byte>(byte));
        match = {true, 0, {{0, address}}};
    }

    platform::InterfaceMatch match;
    platform::DeviceTreeSearch deviceTree;
    mutable std::string lastInterface;
    mutable std::string lastProperty;
};

class FakeServicesDatabase : public platform::ServicesDatabase {
  public:
    std::optional<std::uint16_t> tcpPort(const std::string& service) const override {
        auto found = ports.find(service);
        return found == ports.end() ? std::nullopt : std::optional(found->second);
    }
    std::map<std::string, std::uint16_t> ports{{"ssh", 22}};
};

class FakeProcessInfo : public platform::ProcessInfo {
  public:
    std::optional<platform::OperatingSystemVersion> operatingSystemVersion() const override {
        return version;
    }
    std::optional<platform::OperatingSystemVersion> version =
        platform::OperatingSystemVersion{12, 4, 0};
};

class FakeTextInputSources : public platform::TextInputSources {
  public:
    std::optional<std::string> currentKeyboardInputSourceId() const override { return id; }
    std::optional<std::string> id = "us";
};

class FakeRandom : public platform::Random {
  public:
    std::uint32_t uniform32() override { return next; }
    std::uint32_t next = 0;
};

/// Not MD5: shows the bytes it was given, cut or filled up to 16.
class FakeMessageDigest : public platform::MessageDigest {
  public:
    std::array<std::byte, 16> md5(std::span<const std::byte> bytes) const override {
        std::array<std::byte, 16> result{};
        for (std::size_t i = 0; i < bytes.size() && i < result.size(); ++i)
            result[i] = bytes[i];
        return result;
    }
};

class FakeAddressParser : public platform::AddressParser {
  public:
    bool isIPv4(const std::string& text) const override {
        asked.push_back(text);
        return true;
    }
    mutable std::vector<std::string> asked;
};

/// Files in memory; `encode` makes bytes that this reader, and no other, takes for the value.
class FakePropertyListReader : public platform::PropertyListReader {
  public:
    platform::PropertyListResult parse(std::span<const std::byte> bytes) const override {
        std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        if (text.starts_with("encoded:"))
            return {encoded_.at(std::stoul(text.substr(8))), std::nullopt};
        return {std::nullopt,
                platform::Error{platform::CocoaErrorDomain, platform::PropertyListReadCorruptError,
                                "not a list"}};
    }
    std::optional<PropertyList::Dictionary> dictionaryWithContentsOfFile(
        const std::string& path) const override {
        auto found = files.find(path);
        if (found == files.end() || !found->second.dictionary())
            return std::nullopt;
        return *found->second.dictionary();
    }
    bool fileExists(const std::string& path) const override { return files.count(path) > 0; }

    std::vector<std::byte> encode(const PropertyList& value) {
        auto text = "encoded:" + std::to_string(encoded_.size());
        encoded_.push_back(value);
        auto bytes = std::as_bytes(std::span(text));
        return {bytes.begin(), bytes.end()};
    }

    std::map<std::string, PropertyList> files;

  private:
    std::vector<PropertyList> encoded_;
};

class FakeUserDefaults : public platform::UserDefaults {
  public:
    bool boolForKey(std::string_view key) const override {
        auto found = values.find(std::string(key));
        return found != values.end() && found->second.booleanReading();
    }
    std::optional<std::string> stringForKey(std::string_view key) const override {
        auto found = values.find(std::string(key));
        if (found == values.end() || !found->second.string())
            return std::nullopt;
        return *found->second.string();
    }
    void setString(std::string_view key, std::string_view value) override {
        values[std::string(key)] = std::string(value);
    }
    void removeObject(std::string_view key) override { values.erase(std::string(key)); }

    std::map<std::string, PropertyList> values;
};

class FakeBundle : public platform::Bundle {
  public:
    std::string bundleIdentifier() const override { return "app.zelvo.Zelvo"; }
    std::string shortVersionString() const override { return "1.0"; }
    std::string resourcePath() const override { return "/resources"; }
    std::optional<std::string> resourcePath(const std::string& identifier) const override {
        return identifier == bundleIdentifier() ? std::optional(resourcePath()) : std::nullopt;
    }
    std::string localizedString(const std::string& key) const override {
        auto found = strings.find(key);
        return found == strings.end() ? key : found->second;
    }
    std::optional<std::string> userLibraryDirectory() const override { return library; }

    std::map<std::string, std::string> strings{{"Version Info", "Version %@"}};
    std::optional<std::string> library = "/home/anna/Library";
};

}  // namespace zelvo::test
