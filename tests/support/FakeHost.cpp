#include "tests/support/FakeHost.h"

#include <algorithm>
#include <utility>

namespace zelvo::test {

struct FakeDynamicStore::Connection : platform::DynamicStoreConnection {
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

std::unique_ptr<platform::DynamicStoreConnection> FakeDynamicStore::create(const std::string&,
                                                                           Callback callback) {
    if (!opens)
        return nullptr;
    return std::make_unique<Connection>(*this, std::move(callback));
}

void FakeDynamicStore::notify(const std::vector<std::string>& keys) {
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

void FakeHardwareRegistry::setAddress(std::vector<unsigned char> bytes) {
    std::vector<std::byte> address;
    for (auto byte : bytes)
        address.push_back(static_cast<std::byte>(byte));
    match = {true, 0, {{0, address}}};
}

platform::PropertyListResult FakePropertyListReader::parse(std::span<const std::byte> bytes) const {
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.starts_with("encoded:"))
        return {encoded_.at(std::stoul(text.substr(8))), std::nullopt};
    return {std::nullopt, platform::Error{platform::CocoaErrorDomain,
                                          platform::PropertyListReadCorruptError, "not a list"}};
}

std::optional<PropertyList::Dictionary> FakePropertyListReader::dictionaryWithContentsOfFile(
    const std::string& path) const {
    auto found = files.find(path);
    if (found == files.end() || !found->second.dictionary())
        return std::nullopt;
    return *found->second.dictionary();
}

std::vector<std::byte> FakePropertyListReader::encode(const PropertyList& value) {
    auto text = "encoded:" + std::to_string(encoded_.size());
    encoded_.push_back(value);
    auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

bool FakeUserDefaults::boolForKey(std::string_view key) const {
    auto found = values.find(std::string(key));
    return found != values.end() && found->second.booleanReading();
}

std::optional<std::string> FakeUserDefaults::stringForKey(std::string_view key) const {
    auto found = values.find(std::string(key));
    if (found == values.end() || !found->second.string())
        return std::nullopt;
    return *found->second.string();
}

}  // namespace zelvo::test
