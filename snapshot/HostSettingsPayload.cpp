#include "snapshot/HostSettingsPayload.h"

#include "snapshot/HotCorners.h"
#include "snapshot/JsonWriter.h"
#include "snapshot/OperatingSystemVersion.h"
#include "snapshot/SymbolicHotKeys.h"

namespace zelvo {

namespace {

/// The space character is its own keysym.
constexpr std::int32_t Space = 32;

void writeIntegers(JsonWriter& json, const std::string& name,
                   const std::vector<std::int32_t>& numbers) {
    json.key(name);
    json.beginArray();
    for (auto number : numbers)
        json.integer(number);
    json.endArray();
}

void writeHotCorners(JsonWriter& json, const std::map<std::string, HotCorner>& corners) {
    json.key("hotCorners");
    json.beginObject();
    for (const auto& [name, corner] : corners) {
        if (!isJsonRepresentable(corner.value))
            continue;
        json.key(name);
        json.beginObject();
        json.key("value");
        json.propertyList(corner.value);
        writeIntegers(json, "modifiers", corner.modifiers);
        json.endObject();
    }
    json.endObject();
}

}  // namespace

std::string hostSettingsPayload(
    const platform::PropertyListReader& reader, const platform::Bundle& bundle,
    const platform::ProcessInfo& processInfo,
    const std::function<std::int32_t(std::int32_t keyCode)>& translateKeyCode) {
    JsonWriter json;
    json.beginObject();
    std::vector<std::int32_t> originalKeys;
    auto hotKeys = readSymbolicHotKeys(reader, bundle, processInfo);
    for (auto& [number, keys] : hotKeys) {
        originalKeys.push_back(keys.back());
        if (keys.back() != Space)
            keys.back() = translateKeyCode(keys.back());
        writeIntegers(json, number, keys);
    }
    writeIntegers(json, "originalKeys", originalKeys);
    json.key("osVersion");
    json.string(operatingSystemVersionString(processInfo, true));
    writeHotCorners(json, readHotCorners(reader, bundle));
    json.endObject();
    return json.text();
}

}  // namespace zelvo
