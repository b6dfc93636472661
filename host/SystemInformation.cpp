#include "host/SystemInformation.h"

#include <algorithm>

#include "host/HexDigits.h"
#include "host/ListeningPorts.h"
#include "host/PrimaryInterface.h"
#include "host/SystemInformationDelegate.h"
#include "platform/Log.h"

namespace zelvo {

namespace {

constexpr const char* ConnectionName = "app.zelvo.Zelvo.zv_daemon";
constexpr std::size_t EthernetAddressLength = 6;

}  // namespace

SystemInformation::SystemInformation(const platform::Platform& platform)
    : dynamicStore_(platform.dynamicStore),
      propertyLists_(platform.propertyLists),
      services_(platform.services) {
    store_ = platform.dynamicStore.create(
        ConnectionName,
        [this](const std::vector<std::string>& changedKeys) { _dynamicStoreChanged(changedKeys); });
    computerName_ = _findComputerName();
    localHostname_ = findLocalHostname();
    computerNameKey_ = dynamicStore_.keyCreateComputerName();
    localHostnameKey_ = dynamicStore_.keyCreateHostNames();
    if (store_)
        store_->setNotificationKeys({computerNameKey_, localHostnameKey_});
    macAddress_ = _copyMACAddress(platform.hardware, platform.log);
    if (store_)
        store_->setMainQueue();
}

SystemInformation::SystemInformation(const platform::Platform& platform,
                                     SystemInformationDelegate* delegate)
    : SystemInformation(platform) {
    delegate_ = delegate;
}

std::string SystemInformation::macAddressHexString(const platform::HardwareRegistry& hardware,
                                                   platform::Log& log) {
    auto address = _copyMACAddress(hardware, log);
    return address.size() == EthernetAddressLength ? hexDigits(address, LowerCaseHex) : "";
}

std::uint16_t SystemInformation::sshListeningPort() const {
    auto configured = sshServiceName(propertyLists_);
    if (!configured)
        return DefaultSshPort;
    auto number = configured->integerReading();
    if (!number)
        return 65535;
    if (auto port = static_cast<std::uint16_t>(*number))
        return port;
    return tcpServicePort(services_, textOfNumberOrString(*configured)).value_or(DefaultSshPort);
}

std::uint16_t SystemInformation::vncListeningPort() const {
    return vncServicePort(services_);
}

std::vector<std::byte> SystemInformation::_copyMACAddress(
    const platform::HardwareRegistry& hardware, platform::Log& log) {
    return primaryInterfaceAddress(hardware, [&log](std::string_view text) { log.line(text); })
        .value_or(std::vector<std::byte>());
}

std::string SystemInformation::_findComputerName() const {
    if (store_) {
        if (auto name = store_->copyComputerName())
            return *name;
    }
    return dynamicStore_.localizedHostName().value_or("Macintosh");
}

std::string SystemInformation::findLocalHostname() const {
    auto name = store_ ? store_->copyLocalHostName() : std::nullopt;
    return name.value_or("zverrorhostnamenull") + ".local.";
}

void SystemInformation::_dynamicStoreChanged(const std::vector<std::string>& changedKeys) {
    auto changed = [&changedKeys](const std::string& key) {
        return std::find(changedKeys.begin(), changedKeys.end(), key) != changedKeys.end();
    };
    if (changed(computerNameKey_)) {
        computerName_ = _findComputerName();
        if (delegate_)
            delegate_->computerNameChanged(computerName_);
    }
    if (changed(localHostnameKey_)) {
        localHostname_ = findLocalHostname();
        if (delegate_)
            delegate_->computerLocalHostnameChanged(localHostname_);
    }
}

}  // namespace zelvo
