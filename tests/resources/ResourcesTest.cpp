#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>

#include "platform/linux/bundle/InstalledBundle.h"
#include "platform/linux/property_lists/PlistReader.h"
#include "platform/linux/screen_sharing/ScreenSharingExplanation.h"
#include "tests/support/ManualLoop.h"

namespace zelvo::platform {
namespace {

const std::string resources = ZELVO_RESOURCES;
const std::vector<std::string> languages = {"en", "de", "fr", "es", "zh-Hans"};

PropertyList::Dictionary read(const std::string& name) {
    auto dictionary = PlistReader("/nowhere").dictionaryWithContentsOfFile(resources + "/" + name);
    EXPECT_TRUE(dictionary) << name << " cannot be read";
    return dictionary.value_or(PropertyList::Dictionary());
}

int objects(const std::string& format) {
    int count = 0;
    for (auto at = format.find("%@"); at != std::string::npos; at = format.find("%@", at + 2))
        ++count;
    return count;
}

TEST(KeyboardTable, EveryEntryIsAKeysymThatTheKeyboardLibraryKnows) {
    std::map<std::int64_t, std::string> names;
    for (const auto& [name, entry] : read("KeycodeToKeysym.plist")) {
        ASSERT_TRUE(entry.find("keycode") && entry.find("keysym")) << name;
        auto keyCode = *entry.find("keycode")->integer();
        EXPECT_TRUE(names.emplace(keyCode, name).second) << "two entries for key code " << keyCode;
        EXPECT_EQ(*entry.find("keysym")->integer(),
                  xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_NO_FLAGS))
            << name;
    }
    // Key codes that no key of an ANSI, ISO or JIS keyboard has, and fn, which has no keysym.
    const std::set<std::int64_t> unused = {52, 63, 66, 68, 70, 77, 108, 112, 127};
    for (std::int64_t keyCode = 0; keyCode < 128; ++keyCode)
        EXPECT_NE(names.contains(keyCode), unused.contains(keyCode)) << "key code " << keyCode;
    // Keys whose place betrays a row that has slipped.
    std::string places;
    for (int keyCode : {0, 6, 10, 29, 36, 49, 53, 64, 76, 92, 104, 122, 126})
        places += names[keyCode] + " ";
    EXPECT_EQ(places,
              "a z section 0 Return space Escape F17 KP_Enter KP_9 Hiragana_Katakana F1 Up ");
}

TEST(StringTables, AllLanguagesHaveTheSameKeysAndObjects) {
    auto english = read("en.lproj/Localizable.strings");
    for (const auto& language : languages) {
        auto table = read(language + ".lproj/Localizable.strings");
        for (const auto& [key, text] : english) {
            ASSERT_TRUE(table.contains(key)) << language << " lacks \"" << key << "\"";
            EXPECT_NE(*table[key].string(), "") << language << ": " << key;
            EXPECT_EQ(objects(*table[key].string()), objects(*text.string()))
                << language << ": " << key;
        }
        EXPECT_EQ(table.size(), english.size()) << language << " has keys that English lacks";
        for (const auto* page : {"HELP_PAGE_GENERAL", "HELP_PAGE_ROUTER"})
            EXPECT_TRUE(std::filesystem::exists(resources + "/" + *table[page].string()))
                << language << ": " << page;
    }
    EXPECT_EQ(objects(*english["Version Info"].string()), 1);
    // Scripts read the rows in English.
    for (const auto* row :
         {"Applying Port Mapping...", "Port Mapping Error:", "Port Mapping Successful.",
          "Waiting for connection...", "Connection established."})
        EXPECT_EQ(*english[row].string(), row);
}

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What stands in the first group of each match.
std::set<std::string> matches(const std::string& text, const char* pattern) {
    std::set<std::string> found;
    const std::regex expression(pattern);
    for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at)
        found.insert((*at)[1]);
    return found;
}

// A key that the tables lack would show in English, or as a name in capitals, in every language.
TEST(StringTables, HoldWhatTheWindowAndTheCodeShow) {
    auto table = read("en.lproj/Localizable.strings");
    auto shown = matches(contents(resources + "/MainWindow.ui"), "<string>([^<]+)</string>");
    std::set<std::string> literals;
    for (const auto* room :
         {"app", "doctor", "platform/qt", "platform/terminal", "platform/linux", "opener"})
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(resources + "/../" + room)) {
            if (entry.path().extension() != ".cpp")
                continue;
            // Literals that stand side by side are one.
            auto source = std::regex_replace(contents(entry.path()), std::regex("\"\\s+\""), "");
            shown.merge(matches(source,
                                "(?:localized|withHost|text|localizedString|add|addField|Texts|"
                                "openHelpPage|showPortMapping|showConnection)"
                                "[({](?:\\*layout,)?\\s*\"([&A-Z][^\"]+)\""));
            shown.merge(matches(source, "\\{\"action\\w+\",\\s*\"([&A-Z][^\"]+)\""));
            if (room == std::string("opener"))
                shown.merge(matches(source, "\"(viewer-[a-z-]+)\""));
            literals.merge(matches(source, "\"([^\"]*)\""));
        }
    // The page's build finds those that the tables lack.
    for (const auto* folder : {"page", "page/src"})
        for (const auto& entry : std::filesystem::directory_iterator(resources + "/../" + folder))
            if (entry.is_regular_file())
                literals.merge(matches(contents(entry.path()), "\"([^\"\n]+)\""));
    EXPECT_GT(shown.size(), 50U);
    for (const auto& key : shown)
        EXPECT_TRUE(table.contains(key)) << key;
    // What the toolkit shows in the context menu of a text.
    literals.merge(
        std::set<std::string>{"&Undo", "&Redo", "Cu&t", "&Copy", "&Paste", "Delete", "Select All"});
    literals.merge(shown);
    for (const auto& [key, text] : table)
        EXPECT_TRUE(literals.contains(key)) << "nothing shows \"" << key << '"';
}

std::set<std::string> reasonsOfTheTools() {
    std::set<std::string> words;
    for (const auto& entry : std::filesystem::directory_iterator(resources)) {
        if (entry.path().extension() != ".tool" && entry.path().extension() != ".sh")
            continue;
        words.merge(matches(contents(entry.path()), "give_up ([a-z-]+) \""));
    }
    // What the server says they pass on.
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(resources + "/../server"))
        if (entry.path().extension() == ".cpp")
            words.merge(matches(contents(entry.path()),
                                "(?:giveUp\\(|failed\\(|nullptr, )\"([a-z]+-[a-z-]+)\",\\s"));
    return words;
}

TEST(StringTables, HaveASentenceForEachReasonOfTheTools) {
    test::ManualLoop loop;
    PlistReader reader("/nowhere");
    auto file = testing::TempDir() + "zelvo-reason";
    auto sentence = [&](const std::string& word, const std::string& language) {
        InstalledBundle bundle({std::filesystem::path(resources).parent_path(), {language}, ""},
                               reader);
        std::filesystem::remove(file);
        ScreenSharingExplanation explanation(loop, bundle, file);
        std::ofstream(file) << word << '\n';
        explanation.update();
        loop.settle();
        return explanation.text().value();
    };
    auto words = reasonsOfTheTools();
    EXPECT_GE(words.size(), 12U);
    std::set<std::string> sentences;
    for (const auto& word : words) {
        EXPECT_TRUE(sentences.insert(sentence(word, "en")).second) << word << " has no sentence";
        EXPECT_NE(sentence(word, "de"), sentence(word, "en")) << word << " has no key of its own";
    }
    std::filesystem::remove(file);
}

}  // namespace
}  // namespace zelvo::platform
