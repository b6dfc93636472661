#include "snapshot/SymbolicHotKeys.h"

#include <utility>

#include "platform/Bundle.h"
#include "platform/PropertyListReader.h"
#include "snapshot/OperatingSystemVersion.h"

namespace zelvo {

namespace {

using platform::PropertyList;
using HotKeyDictionary = std::optional<PropertyList::Dictionary>;

/// In place of the character code: the key has no character.
constexpr std::int32_t NoCharacter = 65535;

HotKeyDictionary hotKeysOfFile(const platform::PropertyListReader& reader,
                               const std::string& path) {
    auto file = reader.dictionaryWithContentsOfFile(path);
    if (!file)
        return std::nullopt;
    auto hotKeys = file->find("AppleSymbolicHotKeys");
    if (hotKeys == file->end() || !hotKeys->second.dictionary())
        return std::nullopt;
    return std::move(*hotKeys->second.dictionary());
}

HotKeyDictionary defaultHotKeys(const platform::PropertyListReader& reader,
                                const platform::Bundle& bundle,
                                const platform::ProcessInfo& processInfo,
                                const std::string& bundleIdentifier) {
    auto resources = bundle.resourcePath(bundleIdentifier);
    if (!resources)
        return std::nullopt;
    auto path = *resources + "/com.apple.symbolichotkeys." +
                operatingSystemVersionString(processInfo, false) + ".plist";
    return reader.fileExists(path) ? hotKeysOfFile(reader, path) : std::nullopt;
}

HotKeyDictionary userHotKeys(const platform::PropertyListReader& reader,
                             const platform::Bundle& bundle) {
    auto library = bundle.userLibraryDirectory();
    if (!library)
        return std::nullopt;
    return hotKeysOfFile(reader, *library + "/Preferences/com.apple.symbolichotkeys.plist");
}

/// The keys under the number, empty when they cannot be sent: a key value is greater than 0.
std::vector<std::int32_t> usableKeys(const HotKeyDictionary& hotKeys, const std::string& number) {
    if (!hotKeys)
        return {};
    auto hotKey = hotKeys->find(number);
    auto keys = keysFromSymbolicHotKey(hotKey == hotKeys->end() ? nullptr : &hotKey->second);
    if (!keys.empty() && keys.back() <= 0)
        keys.clear();
    return keys;
}

}  // namespace

std::vector<std::int32_t> modifierKeysFromFlags(std::int32_t flags) {
    std::vector<std::int32_t> keys;
    for (const auto& modifier : modifierKeyTable)
        if (flags & modifier.plistValue)
            keys.push_back(modifier.value);
    return keys;
}

std::vector<std::int32_t> keysFromSymbolicHotKey(const PropertyList* hotKey) {
    if (!hotKey || !hotKey->dictionary() || hotKey->dictionary()->empty())
        return {};
    const auto* value = hotKey->find("value");
    const auto* parameters = value ? value->find("parameters") : nullptr;
    const auto* elements = parameters ? parameters->array() : nullptr;
    if (!elements || elements->size() < 3)
        return {0};
    auto key = elements->front().int32Reading();
    if (key == NoCharacter)
        key = (*elements)[1].int32Reading();
    auto keys = modifierKeysFromFlags(elements->back().int32Reading());
    keys.push_back(key);
    return keys;
}

SymbolicHotKeys readSymbolicHotKeys(const platform::PropertyListReader& reader,
                                    const platform::Bundle& bundle,
                                    const platform::ProcessInfo& processInfo,
                                    std::optional<std::string> bundleIdentifier) {
    auto defaults =
        defaultHotKeys(reader, bundle, processInfo,
                       bundleIdentifier ? std::move(*bundleIdentifier) : bundle.bundleIdentifier());
    auto user = userHotKeys(reader, bundle);
    SymbolicHotKeys result;
    if (!user)
        return result;
    for (auto id : forwardedHotKeyIDs) {
        auto number = std::to_string(id);
        auto keys = usableKeys(user, number);
        if (keys.empty())
            keys = usableKeys(defaults, number);
        if (!keys.empty())
            result.emplace(std::move(number), std::move(keys));
    }
    return result;
}

}  // namespace zelvo
