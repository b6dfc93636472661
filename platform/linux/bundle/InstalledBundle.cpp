#include "platform/linux/bundle/InstalledBundle.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string_view>
#include <utility>

#include "platform/PropertyListReader.h"

namespace zelvo::platform {

namespace {

constexpr const char* identifierOfTheBundle = "app.zelvo.Zelvo";

std::string ownFolder() {
    std::array<char, 4096> path;
    auto length = ::readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0)
        return ".";
    std::string_view executable(path.data(), static_cast<std::size_t>(length));
    return std::string(executable.substr(0, executable.rfind('/')));
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Names of the language folders that serve a locale, the best first: for "zh_CN.UTF-8" these are
/// "zh-CN", "zh-Hans" and "zh".
std::vector<std::string> languageFolders(const std::string& locale) {
    auto name = locale.substr(0, locale.find_first_of(".@"));
    for (auto& c : name) {
        if (c == '_')
            c = '-';
    }
    if (name.find('/') != name.npos)
        return {};
    std::vector<std::string> folders{name};
    auto language = name.substr(0, name.find('-'));
    if (language == "zh") {
        bool isTraditional = name.find("TW") != name.npos || name.find("HK") != name.npos ||
                             name.find("MO") != name.npos || name.find("Hant") != name.npos;
        folders.emplace_back(isTraditional ? "zh-Hant" : "zh-Hans");
    }
    folders.push_back(std::move(language));
    return folders;
}

}  // namespace

InstalledBundle::InstalledBundle(Options options, const PropertyListReader& propertyLists)
    : dataHome_(std::move(options.dataHome)) {
    auto folder =
        options.executableFolder.empty() ? ownFolder() : std::move(options.executableFolder);
    resources_ = folder + "/resources";
    auto installed = folder + "/../share/zelvo/resources";
    if (!isFolder(resources_) && isFolder(installed))
        resources_ = installed;

    auto add = [&](const std::string& name) {
        auto table = propertyLists.dictionaryWithContentsOfFile(resources_ + "/" + name +
                                                                ".lproj/Localizable.strings");
        if (!table)
            return false;
        for (auto& [key, text] : *table) {
            if (text.string())
                strings_.emplace(key, *text.string());
        }
        return true;
    };
    auto addBest = [&] {
        for (const auto& locale : options.languages) {
            for (const auto& name : languageFolders(locale)) {
                if (add(name))
                    return;
            }
        }
    };
    addBest();
    add("en");
}

std::string InstalledBundle::bundleIdentifier() const {
    return identifierOfTheBundle;
}

std::string InstalledBundle::shortVersionString() const {
    return ZELVO_VERSION;
}

std::string InstalledBundle::resourcePath() const {
    return resources_;
}

std::optional<std::string> InstalledBundle::resourcePath(const std::string& identifier) const {
    if (identifier != identifierOfTheBundle)
        return std::nullopt;
    return resources_;
}

std::string InstalledBundle::localizedString(const std::string& key) const {
    auto found = strings_.find(key);
    return found == strings_.end() ? key : found->second;
}

std::optional<std::string> InstalledBundle::userLibraryDirectory() const {
    if (dataHome_.empty())
        return std::nullopt;
    return dataHome_ + "/zelvo/Library";
}

}  // namespace zelvo::platform
