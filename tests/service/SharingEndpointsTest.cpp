#include "service/SharingEndpoints.h"

#include <gtest/gtest.h>

#include <random>

#include "Workshop.h"
#include "service/JsonObject.h"
#include "service/PropertyListWriter.h"

namespace zelvo::service {
namespace {

const std::string Base = "/app/4.8.1/sharing/";

class SharingEndpointsTest : public testing::Test {
  protected:
    Reply answer(const std::string& endpoint, const std::string& body) {
        return parse(PropertyListWriter::write(endpoints.answer(Base + endpoint, body)));
    }
    std::string create(const std::string& name, const std::string& kept = "") {
        auto reply = answer("create.php", facts(name) + "&permanentSharedLink=" + kept);
        return statusOf(reply) == 0 ? std::get<std::string>(reply.at("link")) : "";
    }

    Workshop workshop;
    std::string error;
    std::unique_ptr<LinkStore> store = LinkStore::open(workshop.path("links.db"), error);
    SharingEndpoints endpoints{*store};
};

TEST_F(SharingEndpointsTest, ALinkLivesFromCreateToDelete) {
    auto link = create("Tom%20&%20Ann=1+1%0D%3C%5D%5D%3E%01");
    auto other = create("Other");
    EXPECT_EQ(link.size(), 32u);
    EXPECT_NE(link, other);
    const Reply registered = {{"StatusCode", 0},
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

    EXPECT_EQ(answer("update.php", facts("B") + "&sharedLink=" + link + "&availabilityStatus=1"),
              success());
    auto updated = answer("get.php", "link=" + link);
    EXPECT_EQ(updated["ComputerName"], Reply::mapped_type("B"));
    EXPECT_EQ(updated["availabilityStatus"], Reply::mapped_type(1));

    EXPECT_EQ(create("C", link), link);
    auto again = answer("get.php", "link=" + link);
    EXPECT_EQ(again["ComputerName"], Reply::mapped_type("C"));
    EXPECT_EQ(again["availabilityStatus"], Reply::mapped_type(0));

    EXPECT_EQ(answer("delete.php", "link=" + link), success());
    for (const auto& [endpoint, body] : std::map<std::string, std::string>{
             {"delete.php", "link=" + link},
             {"get.php", "link=" + link},
             {"update.php", facts("D") + "&sharedLink=" + link + "&availabilityStatus=0"}})
        EXPECT_EQ(statusOf(answer(endpoint, body)), 5) << endpoint;
    auto fresh = create("E", link);
    EXPECT_EQ(fresh.size(), 32u);
    EXPECT_NE(fresh, link);
    EXPECT_EQ(answer("get.php", "link=" + other)["ComputerName"], Reply::mapped_type("Other"));
}

TEST_F(SharingEndpointsTest, RefusesValuesThatTheFieldCannotHave) {
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
             {"HotKeys", {"", "[]", "%7B", "text"}}})
        for (const auto& value : values)
            EXPECT_EQ(answer("create.php", with(field, value)),
                      refusal(StatusCode::MalformedField, field))
                << value;
    for (auto field : {"ComputerName", "LocalHostname", "MacAddress", "LastKeyboardLocale"})
        EXPECT_EQ(statusOf(answer("create.php", with(field, ""))), 0) << field;
    auto link = create("A");
    EXPECT_EQ(answer("update.php", facts("B") + "&sharedLink=" + link + "&availabilityStatus=2"),
              refusal(StatusCode::MalformedField, "availabilityStatus"));
    EXPECT_EQ(answer("get.php", "link=" + link)["ComputerName"], Reply::mapped_type("A"));
}

TEST_F(SharingEndpointsTest, AnswersEveryMutatedBody) {
    std::mt19937 random(20);
    auto link = create("A");
    const std::pair<std::string, std::string> seeds[] = {
        {"create.php", facts("Tom%20&%C3%A9") + "&permanentSharedLink=" + link},
        {"update.php", facts("Ann") + "&sharedLink=" + link + "&availabilityStatus=1"},
        {"get.php", "link=" + link}};
    const std::string pieces[] = {"%", "&", "=", "link=", "&Port=1", "%00", "%F0%9F", "\"", "{"};
    for (int round = 0; round < 4000; ++round) {
        auto [endpoint, body] = seeds[round % 3];
        for (auto edits = 1 + random() % 4; edits > 0; --edits) {
            auto at = random() % (body.size() + 1);
            auto kind = random() % 3;
            if (kind == 0)
                body.erase(at, random() % 20);
            else if (kind == 1)
                body.insert(at, pieces[random() % std::size(pieces)]);
            else
                body.insert(at, 1, static_cast<char>(random()));
        }
        ASSERT_GE(statusOf(answer(endpoint, body)), 0) << body;
    }
}

TEST(JsonObject, IsOneWholeObject) {
    auto nested = [](int depth) {
        return "{\"a\":" + std::string(depth, '[') + std::string(depth, ']') + "}";
    };
    for (std::string good : {"{}", R"( { "a" : [ -1.5e+3 , 0 , true , null , "\u00e9\n" ] } )",
                             R"({"a":{"b":[]},"c":""})"})
        EXPECT_TRUE(isJsonObject(good)) << good;
    for (std::string bad : {"", "{", "}", "{}{}", "[{}]", R"({"a"})", R"({"a":})", R"({"a":1,})",
                            R"({a:1})", R"({"a":01})", R"({"a":1.})", R"({"a":-})", R"({"a":"\x"})",
                            R"({"a":"\u12g4"})", "{\"a\":\"\n\"}", R"({"a":"})", R"({"a":[1})"})
        EXPECT_FALSE(isJsonObject(bad)) << bad;
    EXPECT_TRUE(isJsonObject(nested(63)));
    EXPECT_FALSE(isJsonObject(nested(100000)));
}

}  // namespace
}  // namespace zelvo::service
