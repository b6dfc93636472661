#include "opener/facts/FactsReply.h"

#include <gtest/gtest.h>

#include <span>

#include "opener/facts/Place.h"
#include "platform/linux/property_lists/XmlPlistWriter.h"
#include "tests/support/Mutations.h"

namespace zelvo::opener {
namespace {

using platform::PropertyList;

const char* const Settings =
    R"({"32":[65507,65362],"33":[65507,0],"64":[65513,32],"79":[97,98],"81":"x","90":[97],)"
    R"("originalKeys":[126],"osVersion":"12.0.0","hotCorners":{)"
    R"("wvous-br-corner":{"value":5,"modifiers":[65513]},"wvous-tl-corner":{"value":"x"}}})";

PropertyList::Dictionary honest() {
    return {{"StatusCode", 0},       {"availabilityStatus", 0},
            {"AddressProven", 1},    {"ComputerName", "Anna\u202E\u2019s PC"},
            {"LocalHostname", "pc"}, {"IPAddress", "192.0.2.7"},
            {"Port", "40000"},       {"LastKeyboardLocale", "com.apple.keylayout.German"},
            {"HotKeys", Settings}};
}

FactsAnswer read(const std::string& bytes) {
    return readFacts(std::as_bytes(std::span(bytes)));
}

std::string written(const PropertyList::Dictionary& fields) {
    return platform::writeXmlPlist(fields)->toStdString();
}

TEST(FactsReply, TellsWhatAnHonestServiceSays) {
    HostFacts facts{.name = "Anna\u2019s PC",
                    .address = "192.0.2.7",
                    .port = 40000,
                    .addressIsProven = true,
                    .layout = "com.apple.keylayout.German",
                    .osVersion = "12.0.0",
                    // A key of 0 is none, and neither are letters held like modifiers.
                    .hotKeys = {{32, {65507, 65362}}, {64, {65515, 32}}},
                    .corners = {{HostCorner::Place::BottomRight, 5, {65515}}}};
    EXPECT_EQ(read(written(honest())), FactsAnswer(facts));
}

TEST(FactsReply, BelievesNothingThatLeadsNowhere) {
    const struct {
        const char* field;
        PropertyList value;
        NoFacts why;
    } lies[]{{"StatusCode", 5, NoFacts::UnknownLink},
             {"StatusCode", 13, NoFacts::Busy},
             {"StatusCode", "0", NoFacts::Nonsense},
             {"StatusCode", 77, NoFacts::Nonsense},
             {"IPAddress", "", NoFacts::Nonsense},
             {"IPAddress", "0.0.0.0", NoFacts::Nonsense},
             {"IPAddress", "::1", NoFacts::Nonsense},
             {"IPAddress", "224.0.0.1", NoFacts::Nonsense},
             {"IPAddress", "a.example", NoFacts::Nonsense},
             {"Relay", "relay.example/23456", NoFacts::Nonsense},
             {"Port", "0", NoFacts::Nonsense},
             {"Port", 65536, NoFacts::Nonsense},
             {"availabilityStatus", 1, NoFacts::Unavailable}};
    for (const auto& [field, value, why] : lies) {
        auto fields = honest();
        fields[field] = value;
        EXPECT_EQ(read(written(fields)), FactsAnswer(why)) << field;
    }
    EXPECT_EQ(read("<html>Sign in</html>"), FactsAnswer(NoFacts::Nonsense));
    EXPECT_EQ(read(std::string(std::size_t{2} << 20, '(')), FactsAnswer(NoFacts::Nonsense));

    // What only helps is left out.
    auto fields = honest();
    fields["HotKeys"] = "[" + std::string(50'000, '[');
    fields["ComputerName"] = "\u202E";
    fields["LastKeyboardLocale"] = "a\nb";
    const auto facts = std::get<HostFacts>(read(written(fields)));
    EXPECT_EQ(facts.name, "pc");
    EXPECT_EQ(facts.layout + facts.osVersion, "");
    EXPECT_TRUE(facts.hotKeys.empty() && facts.corners.empty());

    test::mutate(written(honest()), 2000, [](const auto& text) {
        const auto answer = read(text);
        const auto* told = std::get_if<HostFacts>(&answer);
        EXPECT_FALSE(told && (told->name.empty() || told->port == 0));
    });
}

TEST(Place, IsOnTheInternetOrNextToUs) {
    const auto isOwn = [](std::uint32_t address) { return address >> 16 == 0x0A09; };
    const struct {
        const char* address;
        std::uint16_t port;
        bool isAllowed;
    } places[]{{"44.128.7.1", 22, true},       {"172.15.255.255", 80, true},
               {"100.128.0.1", 80, true},      {"127.0.0.2", 40000, false},
               {"169.254.1.1", 40000, false},  {"192.168.0.1", 40000, false},
               {"172.31.255.1", 40000, false}, {"100.64.0.1", 40000, false},
               {"10.8.0.1", 40000, false},     {"10.9.0.1", 1024, true},
               {"10.9.0.1", 1023, false},      {"239.0.0.1", 40000, false}};
    for (const auto& [address, port, isAllowed] : places)
        EXPECT_EQ(mayBeSentTo(address, port, isOwn), isAllowed) << address;
    EXPECT_TRUE(isOwnNetwork(0x7F000002) && !isOwnNetwork(0x2C800701));
    EXPECT_TRUE(isOnLoopback("https://127.0.0.1:1") && isOnLoopback("https://[::1]"));
    EXPECT_FALSE(isOnLoopback("https://127.0.0.1.example") || isOnLoopback("https://a.example"));
}

}  // namespace
}  // namespace zelvo::opener
