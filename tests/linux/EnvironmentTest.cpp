#include "platform/linux/base/Environment.h"

#include <gtest/gtest.h>
#include <unistd.h>

using zelvo::platform::Environment;

namespace {

Environment with(std::map<std::string, std::string> variables) {
    return Environment::from([&](const char* name) -> std::optional<std::string> {
        auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    });
}

}  // namespace

TEST(Environment, RefusesWhatNamesNoServiceOrRouter) {
    EXPECT_TRUE(with({}).serviceOrigin.starts_with("https://"));
    EXPECT_TRUE(with({}).complaints.empty() && with({}).refusals.empty());
    for (const auto* good : {"https://share.example", "https://127.0.0.1:8443", "https://[::1]:1"})
        EXPECT_EQ(with({{"ZELVO_SERVICE", good}}).serviceOrigin, good);
    EXPECT_EQ(with({{"ZELVO_SERVICE", "https://a.example/"}}).serviceOrigin, "https://a.example");
    for (const auto* bad : {"", "http://share.example", "share.example", "https://", "https://a/b",
                            "https://a:0", "https://a:65536", "https://a:1x", "https://me@a",
                            "https://[::1", "https://a b", "https://a?x"}) {
        auto environment = with({{"ZELVO_SERVICE", bad}});
        EXPECT_EQ(environment.serviceOrigin, "") << bad;
        EXPECT_EQ(environment.refusals.size(), 1U) << bad;
    }
    for (const auto* good : {"127.0.0.1", "10.0.0.1:5351"})
        EXPECT_EQ(with({{"ZELVO_ROUTER", good}}).router, good);
    for (const auto* bad : {"", "router", "127.0.0.1:", "127.0.0.1:0", "::1"})
        EXPECT_EQ(with({{"ZELVO_ROUTER", bad}}).refusals.size(), 1U) << bad;
}

TEST(Environment, FindsTheUsersFolders) {
    auto plain = with({{"HOME", "/home/ann/"}});
    EXPECT_EQ(plain.configHome, "/home/ann/.config");
    EXPECT_EQ(plain.dataHome, "/home/ann/.local/share");
    auto own = with({{"HOME", "/home/ann"}, {"XDG_CONFIG_HOME", "/c"}, {"XDG_DATA_HOME", "rel"}});
    EXPECT_EQ(own.configHome, "/c");
    EXPECT_EQ(own.runtimeFolder, "/run/user/" + std::to_string(::getuid()));
    EXPECT_EQ(own.dataHome, "/home/ann/.local/share") << "a relative path does not count";
    EXPECT_TRUE(with({}).home.starts_with('/')) << "from the user database";

    EXPECT_EQ(with({}).systemRoot, "/var/lib/zelvo");
    EXPECT_EQ(with({{"ZELVO_ROOT", "/tmp/root/"}, {"ZELVO_AUTHORIZATION", "self"}}).systemRoot,
              "/tmp/root");
    EXPECT_EQ(with({{"ZELVO_ROOT", "here"}}).complaints.size(), 1U);
    EXPECT_TRUE(with({{"ZELVO_AUTHORIZATION", "self"}}).authorizesItself);
    EXPECT_FALSE(with({{"ZELVO_AUTHORIZATION", "yes"}}).authorizesItself);
}

TEST(Environment, OrdersTheLanguages) {
    using List = std::vector<std::string>;
    EXPECT_EQ(with({{"LANG", "de_DE.UTF-8"}, {"LANGUAGE", "fr:es"}}).languages,
              (List{"fr", "es", "de_DE.UTF-8"}));
    EXPECT_EQ(with({{"LANG", "de_DE"}, {"LC_MESSAGES", "fr"}, {"LC_ALL", "es"}}).languages,
              List{"es"});
    EXPECT_EQ(with({{"LC_ALL", "C"}, {"LANGUAGE", "fr"}}).languages, List{});
}
