#include "snapshot/HotCorners.h"

#include "platform/Bundle.h"
#include "platform/PropertyListReader.h"
#include "snapshot/SymbolicHotKeys.h"

namespace zelvo {

std::optional<std::string> dockPreferencesPath(const platform::Bundle& bundle) {
    auto library = bundle.userLibraryDirectory();
    if (!library)
        return std::nullopt;
    return *library + "/Preferences/com.apple.dock.plist";
}

std::map<std::string, HotCorner> readHotCorners(const platform::PropertyListReader& reader,
                                                const platform::Bundle& bundle) {
    std::map<std::string, HotCorner> corners;
    auto path = dockPreferencesPath(bundle);
    auto file = path ? reader.dictionaryWithContentsOfFile(*path) : std::nullopt;
    if (!file)
        return corners;
    for (const char* corner : {"wvous-tl-", "wvous-tr-", "wvous-bl-", "wvous-br-"}) {
        auto action = file->find(std::string(corner) + "corner");
        if (action == file->end())
            continue;
        auto modifier = file->find(std::string(corner) + "modifier");
        auto flags = modifier == file->end() ? 0 : modifier->second.int32Reading();
        corners.emplace(action->first, HotCorner{action->second, modifierKeysFromFlags(flags)});
    }
    return corners;
}

}  // namespace zelvo
