#include "platform/linux/machine/SysfsHardwareRegistry.h"

#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <utility>

#include "platform/linux/base/FileReading.h"
#include "platform/linux/netlink/DefaultRoutes.h"

namespace zelvo::platform {

namespace {

constexpr const char* interfacesFolder = "/sys/class/net";
constexpr const char* dmiFolder = "/sys/class/dmi/id";
constexpr const char* deviceTreeFolder = "/sys/firmware/devicetree/base";

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

/// "00:16:cb:8a:3f:21" as bytes. None for another form and length: a tunnel's is empty, or the
/// address that it ends at.
std::optional<std::vector<std::byte>> hardwareAddress(const std::string& text) {
    std::vector<std::byte> address;
    std::istringstream parts(text);
    std::string part;
    while (std::getline(parts, part, ':')) {
        if (part.size() != 2 || part.find_first_not_of("0123456789abcdefABCDEF") != part.npos)
            return std::nullopt;
        address.push_back(static_cast<std::byte>(std::stoi(part, nullptr, 16)));
    }
    constexpr std::size_t ethernetLength = 6;
    bool isSome = std::any_of(address.begin(), address.end(),
                              [](std::byte byte) { return byte != std::byte{0}; });
    if (address.size() != ethernetLength || !isSome)
        return std::nullopt;
    return address;
}

/// Firmware that knows no value leaves blanks, or the line end that the kernel adds.
std::optional<std::string> firmwareText(const std::string& path) {
    auto text = readTextFile(path);
    if (!text)
        return std::nullopt;
    while (!text->empty() && text->back() == '\0')
        text->pop_back();
    return trimmed(*text);
}

}  // namespace

std::vector<std::string> interfacesOfDefaultRoutes() {
    std::vector<std::string> names;
    for (std::uint8_t family : {AF_INET, AF_INET6}) {
        for (const auto& route : defaultRoutes(family)) {
            std::array<char, IF_NAMESIZE> name{};
            if (::if_indextoname(static_cast<unsigned>(route.interfaceIndex), name.data()))
                names.emplace_back(name.data());
        }
    }
    return names;
}

SysfsHardwareRegistry::SysfsHardwareRegistry(std::string root, Interfaces routed)
    : root_(std::move(root)), routed_(std::move(routed)) {}

std::vector<std::string> SysfsHardwareRegistry::primaryInterfaces() const {
    auto candidates = routed_();
    // The others in the kernel's order: a machine without a route has its address, too.
    std::map<int, std::string> physical;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(root_ + interfacesFolder, error)) {
        auto path = entry.path().string();
        if (exists(path + "/device"))
            physical.emplace(std::atoi(readTextFile(path + "/ifindex").value_or("").c_str()),
                             entry.path().filename().string());
    }
    for (const auto& [index, name] : physical)
        candidates.push_back(name);
    return candidates;
}

std::optional<InterfaceService> SysfsHardwareRegistry::service(const std::string& interface) const {
    auto folder = root_ + interfacesFolder + "/" + interface;
    if (interface.empty() || interface.find('/') != interface.npos || interface.starts_with('.') ||
        !exists(folder))
        return std::nullopt;
    InterfaceService service;
    service.macAddress = hardwareAddress(trimmed(readTextFile(folder + "/address").value_or("")));
    return service;
}

InterfaceMatch SysfsHardwareRegistry::matchInterface(const std::string& bsdName) const {
    InterfaceMatch match;
    bool isPrimary = bsdName == "en0";
    for (const auto& name : isPrimary ? primaryInterfaces() : std::vector{bsdName}) {
        auto found = service(name);
        if (!found || (isPrimary && !found->macAddress))
            continue;
        match.services.push_back(std::move(*found));
        break;
    }
    return match;
}

DeviceTreeSearch SysfsHardwareRegistry::searchDeviceTree(const std::string& property) const {
    namespace fs = std::filesystem;
    DeviceTreeSearch search;
    auto dmi = root_ + dmiFolder;
    auto tree = root_ + deviceTreeFolder;
    search.opened = exists(dmi) || exists(tree);
    if (property == "serial-number" && exists(dmi + "/product_serial")) {
        // Only root may read it; found without data is how a reader sees that.
        search.found = true;
        if (auto serial = firmwareText(dmi + "/product_serial")) {
            const auto* bytes = reinterpret_cast<const std::byte*>(serial->data());
            search.data.emplace(bytes, bytes + serial->size());
        }
        return search;
    }
    // The machine's own stands at the top; parts below it have theirs.
    if (exists(tree + "/" + property)) {
        search.found = true;
        search.data = readRegularFile(tree + "/" + property, std::size_t{1} << 20);
        return search;
    }
    std::error_code error;
    auto entries = fs::recursive_directory_iterator(
        tree, fs::directory_options::skip_permission_denied, error);
    for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
        if (entries->path().filename() == property && entries->is_regular_file(error)) {
            search.found = true;
            search.data = readRegularFile(entries->path().string(), std::size_t{1} << 20);
            break;
        }
    }
    return search;
}

std::string SysfsHardwareRegistry::machineModel() const {
    auto model = firmwareText(root_ + dmiFolder + "/product_name").value_or("");
    if (model.empty())
        model = firmwareText(root_ + deviceTreeFolder + "/model").value_or("");
    return model;
}

}  // namespace zelvo::platform
