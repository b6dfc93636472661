#include <algorithm>
#include <span>

#include "host/HexDigits.h"
#include "host/KVSystemInformation.h"
#include "host/PrimaryInterface.h"
#include "platform/AddressParser.h"
#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/HardwareRegistry.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/MessageDigest.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"

namespace zelvo {

namespace {

constexpr std::size_t SerialNumberPartLength = 63;

std::string hideDockIconKey(const platform::Bundle& bundle) {
    return bundle.bundleIdentifier() + ".hideDockIcon";
}

/// The bytes that may be one part of a serial number, as text.
template <typename Iterator>
std::string serialNumberPart(Iterator begin, Iterator end) {
    std::string part;
    for (; begin != end && part.size() < SerialNumberPartLength; ++begin)
        part += static_cast<char>(*begin);
    return part;
}

}  // namespace

std::optional<std::vector<std::byte>> KVSystemInformation::MACAddress(
    const platform::HardwareRegistry& hardware, platform::Log& log) {
    return primaryInterfaceAddress(hardware,
                                   [&log](std::string_view text) { log.standardError(text); });
}

std::optional<std::string> KVSystemInformation::MACAddressDisplayString(
    const platform::HardwareRegistry& hardware, platform::Log& log) {
    auto address = MACAddress(hardware, log);
    if (!address || address->empty())
        return std::nullopt;
    return hexDigits(*address, LowerCaseHex, ":");
}

std::string KVSystemInformation::computerSerialNumber(const platform::HardwareRegistry& hardware) {
    auto search = hardware.searchDeviceTree("serial-number");
    if (!search.opened)
        return "";
    if (!search.found)
        return "null";
    if (!search.data)
        return "";
    // The property holds the number's tail, padding, and then its head.
    constexpr std::byte nul{0};
    auto end = search.data->end();
    auto tailEnd = std::find(search.data->begin(), end, nul);
    auto head = std::find_if(tailEnd, end, [](std::byte byte) { return byte != nul; });
    auto headEnd = std::find(head, end, nul);
    return serialNumberPart(head, headEnd) + serialNumberPart(search.data->begin(), tailEnd);
}

std::string KVSystemInformation::md5(const platform::MessageDigest& digest,
                                     const std::string& text) {
    auto counted = std::span(text).first(std::min(text.find('\0'), text.size()));
    return hexDigits(digest.md5(std::as_bytes(counted)), UpperCaseHex);
}

std::string KVSystemInformation::machineModel(const platform::HardwareRegistry& hardware) {
    auto model = hardware.machineModel();
    return model.empty() ? "0" : model;
}

bool KVSystemInformation::isIpAddressValid(const platform::AddressParser& addresses,
                                           const std::optional<std::string>& text) {
    return text && !text->empty() && addresses.isIPv4(*text);
}

void KVSystemInformation::closeSystemPreferences(platform::Workspace& workspace) {
    for (const auto& application : workspace.runningApplications()) {
        if (application->bundleIdentifier() == "com.apple.systempreferences") {
            application->terminate();
            return;
        }
    }
}

bool KVSystemInformation::shoudDockIconBeHidden(const platform::UserDefaults& defaults,
                                                const platform::Bundle& bundle) {
    return defaults.boolForKey(hideDockIconKey(bundle));
}

void KVSystemInformation::hideDockIcon(const platform::UserDefaults& defaults,
                                       const platform::Bundle& bundle,
                                       platform::Application& application,
                                       platform::MainQueue& mainQueue, bool /*hide*/) {
    if (shoudDockIconBeHidden(defaults, bundle)) {
        application.setActivationPolicy(platform::ActivationPolicy::Accessory);
        mainQueue.async([&application] { application.activateIgnoringOtherApps(true); });
    } else {
        application.setActivationPolicy(platform::ActivationPolicy::Regular);
        application.displayDockTile();
    }
}

}  // namespace zelvo
