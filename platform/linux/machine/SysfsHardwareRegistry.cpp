#include "platform/linux/machine/SysfsHardwareRegistry.h"

#include <linux/route.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <sstream>
#include <utility>

#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

constexpr const char* dmiFolder = "/sys/class/dmi/id";
constexpr const char* deviceTreeFolder = "/sys/firmware/devicetree/base";

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

/// The best of the default routes of /proc/net/route: destination and mask 0, up, lowest metric.
std::string defaultRoute4(const std::string& table) {
    std::istringstream lines(table);
    std::string line;
    std::string best;
    auto bestMetric = std::numeric_limits<std::uint64_t>::max();
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string interface, gateway, references, uses;
        std::uint32_t destination = 1, mask = 1, flags = 0;
        std::uint64_t metric = 0;
        fields >> interface >> std::hex >> destination >> gateway >> flags >> references >> uses >>
            std::dec >> metric >> std::hex >> mask;
        bool isDefault = fields && destination == 0 && mask == 0 && (flags & RTF_UP) != 0 &&
                         (flags & RTF_REJECT) == 0;
        if (isDefault && metric < bestMetric) {
            best = interface;
            bestMetric = metric;
        }
    }
    return best;
}

/// The same of /proc/net/ipv6_route, where a length of 0 marks a default route.
std::string defaultRoute6(const std::string& table) {
    std::istringstream lines(table);
    std::string line;
    std::string best;
    auto bestMetric = std::numeric_limits<std::uint64_t>::max();
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string destination, length, source, sourceLength, hop, references, uses, interface;
        std::uint64_t metric = 0;
        std::uint32_t flags = 0;
        fields >> destination >> length >> source >> sourceLength >> hop >> std::hex >> metric >>
            references >> uses >> flags >> interface;
        bool isDefault = fields && length == "00" && (flags & RTF_UP) != 0 &&
                         (flags & RTF_REJECT) == 0 && interface != "lo";
        if (isDefault && metric < bestMetric) {
            best = interface;
            bestMetric = metric;
        }
    }
    return best;
}

/// "00:16:cb:8a:3f:21" as bytes; none for another form, or for no bytes at all.
std::optional<std::vector<std::byte>> hardwareAddress(const std::string& text) {
    std::vector<std::byte> address;
    std::istringstream parts(text);
    std::string part;
    while (std::getline(parts, part, ':')) {
        if (part.size() != 2 || part.find_first_not_of("0123456789abcdefABCDEF") != part.npos)
            return std::nullopt;
        address.push_back(static_cast<std::byte>(std::stoi(part, nullptr, 16)));
    }
    if (address.empty())
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

SysfsHardwareRegistry::SysfsHardwareRegistry(std::string root) : root_(std::move(root)) {}

std::string SysfsHardwareRegistry::primaryInterface() const {
    auto interface = defaultRoute4(readTextFile(root_ + "/proc/net/route").value_or(""));
    if (interface.empty())
        interface = defaultRoute6(readTextFile(root_ + "/proc/net/ipv6_route").value_or(""));
    return interface;
}

InterfaceMatch SysfsHardwareRegistry::matchInterface(const std::string& bsdName) const {
    InterfaceMatch match;
    auto name = bsdName == "en0" ? primaryInterface() : bsdName;
    auto folder = root_ + "/sys/class/net/" + name;
    if (name.empty() || name.find('/') != name.npos || name.starts_with('.') || !exists(folder))
        return match;
    InterfaceService service;
    service.macAddress = hardwareAddress(trimmed(readTextFile(folder + "/address").value_or("")));
    match.services.push_back(std::move(service));
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
