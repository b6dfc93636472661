#include "service/SharingEndpoints.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "service/JsonObject.h"
#include "service/Names.h"
#include "service/PropertyListWriter.h"
#include "tests/service/Databases.h"
#include "tests/service/Facts.h"
#include "tests/support/Mutations.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::service {
namespace {

class SharingEndpointsTest : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        if (!store)
            GTEST_SKIP() << "PostgreSQL is missing";
    }
    /// With the secret that the service has given last, unless another is shown.
    Reply answer(const std::string& endpoint, const std::string& body,
                 std::optional<std::string> shown = std::nullopt) {
        std::promise<SharingEndpoints::Answer> promise;
        endpoints.answer("/app/4.8.1/sharing/" + endpoint, body, {shown.value_or(secret), peer},
                         [&](const auto& given) { promise.set_value(given); });
        auto given = promise.get_future().get();
        if (!given.secret.empty())
            secret = given.secret;
        return given.reply;
    }
    static Reply unavailable() { return {{"StatusCode", 0}, {"availabilityStatus", 1}}; }
    std::string update(const std::string& link, int availability) {
        return facts("B") + "&sharedLink=" + link +
               "&availabilityStatus=" + std::to_string(availability);
    }
    std::string create(const std::string& name, const std::string& kept = "") {
        auto reply = answer("create.php", facts(name) + "&permanentSharedLink=" + kept);
        return reply.contains("link") ? std::get<std::string>(reply["link"]) : "";
    }

    std::atomic<Moment> now = 1'000'000'000;
    std::string secret;
    std::string peer = "203.0.113.7";
    Database database{GetParam()};
    std::unique_ptr<LinkStore> store = database.open([this] { return now.load(); });
    SharingEndpoints endpoints{
        *store, {.clock = [this] { return now.load(); }, .relays = {{"198.51.100.1", "r.test"}}}};
};

TEST_P(SharingEndpointsTest, ALinkLivesFromCreateToDelete) {
    auto link = create("Tom%20&%20Ann=1+1%0D%3C%5D%5D%3E");
    auto other = create("Other");
    EXPECT_EQ(link.size(), 32u);
    EXPECT_NE(link, other);
    const Reply registered = {{"StatusCode", 0},
                              {"AddressProven", 1},
                              {"ComputerName", "Tom & Ann=1+1\r<]]>"},
                              {"LocalHostname", "tom.local."},
                              {"vncPort", "5900"},
                              {"IPAddress", "203.0.113.7"},
                              {"Port", "12345"},
                              {"MacAddress", "0011aabbccdd"},
                              {"LastKeyboardLocale", "de+nodeadkeys"},
                              {"MappedService", "vnc"},
                              {"HotKeys", R"({"originalKeys":[],"hotCorners":{}})"},
                              {"availabilityStatus", 0}};
    EXPECT_EQ(answer("get.php", "link=" + link), registered);

    EXPECT_EQ(answer("update.php", update(link, 0)), success());
    EXPECT_EQ(answer("get.php", "link=" + link)["ComputerName"], Reply::mapped_type("B"));
    EXPECT_EQ(answer("update.php", update(link, 1)), success());
    EXPECT_EQ(answer("get.php", "link=" + link), unavailable());

    EXPECT_EQ(create("C", link), link);
    auto again = answer("get.php", "link=" + link);
    EXPECT_EQ(again["ComputerName"], Reply::mapped_type("C"));
    EXPECT_EQ(again["availabilityStatus"], Reply::mapped_type(0));

    EXPECT_EQ(answer("delete.php", "link=" + link), success());
    for (const auto& [endpoint, body] :
         std::map<std::string, std::string>{{"delete.php", "link=" + link},
                                            {"get.php", "link=" + link},
                                            {"update.php", update(link, 0)}})
        EXPECT_EQ(answer(endpoint, body), refusal(StatusCode::UnknownLink)) << endpoint;
    auto fresh = create("E", link);
    EXPECT_EQ(fresh.size(), 32u);
    EXPECT_NE(fresh, link);
    EXPECT_EQ(answer("get.php", "link=" + other)["ComputerName"], Reply::mapped_type("Other"));
}

TEST_P(SharingEndpointsTest, OnlyItsOwnerChangesALink) {
    const auto link = create("A");
    const auto owner = secret;
    EXPECT_EQ(owner.size(), 32u);
    const auto told = answer("get.php", "link=" + link, "");
    secret.clear();
    create("Stranger");
    const auto foreign = secret;
    secret.clear();
    const auto gone = create("Gone");
    const auto old = secret;
    answer("delete.php", "link=" + gone);
    const auto unknown = refusal(StatusCode::UnknownLink);
    for (const auto& shown : {std::string(), foreign, old, owner.substr(1), owner + " ",
                              std::string(32, '0'), digestOf(owner)}) {
        EXPECT_EQ(answer("update.php", update(link, 1), shown), unknown) << shown;
        EXPECT_EQ(answer("delete.php", "link=" + link, shown), unknown) << shown;
        secret = shown;
        const auto fresh = create("Hijack", link);
        EXPECT_EQ(fresh.size(), 32u);
        EXPECT_NE(fresh, link) << shown;
        // A secret that owns something goes on, any other is replaced and never taken over.
        EXPECT_EQ(secret == shown, shown == foreign) << shown;
    }
    EXPECT_EQ(answer("get.php", "link=" + link, ""), told);
    secret = owner;
    EXPECT_EQ(create("A", link), link);
    EXPECT_EQ(secret, owner);
    EXPECT_EQ(database.content().find(owner), std::string::npos);
    EXPECT_EQ(answer("delete.php", "link=" + link), success());
}

TEST_P(SharingEndpointsTest, ALinkLivesAsLongAsItsHostShowsThatItDoes) {
    constexpr Moment hour = 3600;
    const auto link = create("A");
    const auto isAvailable = [&](const std::string& shown) {
        const auto reply = answer("get.php", "link=" + link, shown);
        EXPECT_TRUE(reply.contains("ComputerName") || reply == unavailable());
        return reply.contains("ComputerName");
    };
    now += 48 * hour;
    EXPECT_TRUE(isAvailable("")) << "which is no sign of life";
    now += 1;
    EXPECT_FALSE(isAvailable(""));
    EXPECT_TRUE(isAvailable(secret));
    for (int day = 0; day < 40; ++day) {
        // Changes go one after the other, and so the sign of life has been written.
        answer("delete.php", "link=" + std::string(32, '0'));
        now += 24 * hour;
        EXPECT_TRUE(isAvailable(secret)) << day;
    }
    answer("delete.php", "link=" + std::string(32, '0'));
    now += 30 * 24 * hour - 1;
    EXPECT_FALSE(isAvailable(""));
    now += 1;
    const auto unknown = refusal(StatusCode::UnknownLink);
    EXPECT_EQ(answer("get.php", "link=" + link), unknown);
    EXPECT_EQ(answer("update.php", update(link, 0)), unknown);
    EXPECT_EQ(answer("delete.php", "link=" + link), unknown);
    EXPECT_NE(create("A", link), link);
}

TEST_P(SharingEndpointsTest, SaysWhetherTheAddressIsProven) {
    for (const auto& [from, isProven] :
         std::map<std::string, int>{{"203.0.113.7", 1}, {"203.0.113.8", 0}, {"", 0}}) {
        peer = from;
        const auto link = create("A");
        EXPECT_EQ(answer("get.php", "link=" + link)["AddressProven"], Reply::mapped_type(isProven));
    }
    auto form = facts("A") + "&permanentSharedLink=";
    form.replace(form.find(peer = "203.0.113.7"), 11, "198.51.100.1");
    const auto link = std::get<std::string>(answer("create.php", form)["link"]);
    EXPECT_EQ(answer("get.php", "link=" + link)["AddressProven"], Reply::mapped_type(1));
    EXPECT_EQ(answer("relay.php", "Relay="), refusal(StatusCode::NoRelay));
}

TEST_P(SharingEndpointsTest, AnswersEveryKeptLinkWithOneThatWorks) {
    for (const auto& kept :
         std::vector<std::string>{"unknown", "%1B%5B31m%0A", "%00", "%FF", "%", "a&Port=1&b",
                                  "a&vncPort=1&b&vncPort=", "a&permanentSharedLink=b",
                                  "&HotKeys=", std::string(600'000, 'x')}) {
        auto form = facts("A") + "&permanentSharedLink=" + kept;
        // The order of the fields is the client's.
        auto port = form.find("&vncPort=5900");
        form = form.erase(port, 13) + "&vncPort=5900";
        auto reply = answer("create.php", form);
        ASSERT_TRUE(reply.contains("link")) << kept.substr(0, 40);
        auto told = answer("get.php", "link=" + std::get<std::string>(reply["link"]));
        EXPECT_EQ(told["Port"], Reply::mapped_type("12345")) << kept.substr(0, 40);
        EXPECT_EQ(told["vncPort"], Reply::mapped_type("5900")) << kept.substr(0, 40);
    }
}

TEST_P(SharingEndpointsTest, SaysThatTheStoreFailed) {
    auto link = create("A");
    // The kept link must not be given up for a new one, which the helper has not got.
    database.forbidUpdates();
    const auto failed = refusal(StatusCode::StoreUnavailable);
    EXPECT_EQ(answer("create.php", facts("B") + "&permanentSharedLink=" + link), failed);
    database.allowUpdates();
    database.run("ALTER TABLE links RENAME TO gone");
    for (const auto& [endpoint, body] : std::map<std::string, std::string>{
             {"create.php", facts("B") + "&permanentSharedLink="},
             {"update.php", facts("B") + "&sharedLink=" + link + "&availabilityStatus=0"},
             {"get.php", "link=" + link},
             {"delete.php", "link=" + link}})
        EXPECT_EQ(answer(endpoint, body), failed) << endpoint;
    database.run("ALTER TABLE gone RENAME TO links");
    EXPECT_EQ(create("B", link), link);
}

TEST_P(SharingEndpointsTest, RefusesValuesThatTheFieldCannotHave) {
    auto good = std::string("&").append(facts("A")).append("&permanentSharedLink=");
    auto with = [&](const std::string& field, const std::string& value) {
        auto begin = good.find("&" + field + "=") + field.size() + 2;
        return good.substr(1, begin - 1) + value + good.substr(good.find('&', begin));
    };
    for (auto [field, values] : std::map<std::string, std::vector<std::string>>{
             {"Port", {"", "0", "65536", "080", "-1", "%201", "1a", "99999999999"}},
             {"IPAddress", {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1..2.3", "1.2.3.4%20", "::1"}},
             {"MacAddress", {"0011AABBCCDD", "0011aabbccd", "00:11:aa:bb:cc:dd"}},
             {"MappedService", {"", "VNC", "vnc%20"}},
             // Which PostgreSQL's texts cannot hold, and others cut off there.
             {"ComputerName", {"a%00b", "%00"}},
             {"HotKeys", {"", "[]", "%7B", "text", "%7B%7D%00"}}})
        for (const auto& value : values)
            EXPECT_EQ(answer("create.php", with(field, value)),
                      refusal(StatusCode::MalformedField, field))
                << value;
    for (auto field : {"ComputerName", "LocalHostname", "MacAddress", "LastKeyboardLocale"})
        EXPECT_TRUE(answer("create.php", with(field, "")).contains("link")) << field;
    auto link = create("A");
    EXPECT_EQ(answer("update.php", facts("B") + "&sharedLink=" + link + "&availabilityStatus=2"),
              refusal(StatusCode::MalformedField, "availabilityStatus"));
    EXPECT_EQ(answer("get.php", "link=" + link)["ComputerName"], Reply::mapped_type("A"));
}

TEST_P(SharingEndpointsTest, AnswersEveryMutatedBody) {
    auto link = create("A");
    for (const auto& [endpoint, body] : std::map<std::string, std::string>{
             {"create.php", facts("Tom%20&%C3%A9") + "&permanentSharedLink=" + link},
             {"update.php",
              facts("%F0%9F%98%80") + "&sharedLink=" + link + "&availabilityStatus=1"},
             {"get.php", "link=" + link}})
        test::mutate(body, 1300, [&, endpoint = endpoint](const std::string& mutated) {
            ASSERT_TRUE(answer(endpoint, mutated).contains("StatusCode")) << mutated;
        });
}

INSTANTIATE_TEST_SUITE_P(Databases, SharingEndpointsTest, testing::Values("sqlite", "postgresql"),
                         [](const auto& given) { return std::string(given.param); });

TEST(PropertyListWriter, EscapesWhatXmlCannotCarry) {
    EXPECT_EQ(PropertyListWriter::write({{"StatusCode", 5}, {"t", "a&b\r<]]>\x01\t\xFF\u00e9"}}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
              "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
              "<plist version=\"1.0\">\n<dict>\n"
              "\t<key>StatusCode</key>\n\t<integer>5</integer>\n"
              "\t<key>t</key>\n\t<string>a&amp;b&#13;&lt;]]&gt;\t\u00e9</string>\n"
              "</dict>\n</plist>\n");
}

TEST(JsonObject, IsOneWholeObject) {
    auto nested = [](int depth) {
        return "{\"a\":" + std::string(depth, '[') + std::string(depth, ']') + "}";
    };
    for (std::string good : {"{}", R"( { "a" : [ -1.5e+3 , 0 , true , null , "\u00e9\n" ] } )"})
        EXPECT_TRUE(isJsonObject(good)) << good;
    for (std::string bad : {"", "{", "{}{}", "[{}]", "1", "null", R"({"a":1,})", "\xEF\xBB\xBF{}"})
        EXPECT_FALSE(isJsonObject(bad)) << bad;
    EXPECT_TRUE(isJsonObject(nested(63)));
    EXPECT_FALSE(isJsonObject(nested(64)));
}

}  // namespace
}  // namespace zelvo::service
