#include "link/FormEncoding.h"

#include <gtest/gtest.h>

#include "link/ZVHTTPUtils.h"
#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::PropertyList;

std::string bodyOf(const platform::UrlRequest& request) {
    return {reinterpret_cast<const char*>(request.body.data()), request.body.size()};
}

TEST(FormEncoding, EscapesExactlyWhatRfc2396DoesNotAllow) {
    EXPECT_EQ(percentEscaped("50% é & more"), "50%25%20%C3%A9%20&%20more");
    EXPECT_EQ(percentEscaped("-_.!~*'();/?:@&=+$,aZ09"), "-_.!~*'();/?:@&=+$,aZ09");
    EXPECT_EQ(percentEscaped(std::string("\0\n\x7f", 3) + "#\"<>[]\\^`{|}"),
              "%00%0A%7F%23%22%3C%3E%5B%5D%5C%5E%60%7B%7C%7D");
}

TEST(FormEncoding, NestedValuesExpandOneLevel) {
    const PropertyList::Dictionary params{
        {"pos", PropertyList::Dictionary{{"x", 1}}},
        {"tags", PropertyList::Array{"a", "b c", PropertyList::Array{1}}},
        {"zero", 0.5}};
    auto request = ZVHTTPUtils::createPostURLRequest("https://share.example/x", params);
    EXPECT_EQ(bodyOf(request),
              "pos[x]=1&tags[]=a&tags[]=b%20c&tags[]=(%0A%20%20%20%201%0A)&zero=0.5");
    EXPECT_EQ(request.url, "https://share.example/x");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.timeout, std::chrono::seconds(60));
    EXPECT_EQ(request.cachePolicy, platform::CachePolicy::ReloadIgnoringLocalCacheData);
    const auto header = std::pair("Content-Type", "application/x-www-form-urlencoded");
    EXPECT_EQ(request.headers, (decltype(request.headers){header}));
    EXPECT_TRUE(ZVHTTPUtils::createPostURLRequest("x", {}).body.empty());
}

TEST(FormEncoding, DescribesCollectionsAsText) {
    EXPECT_EQ(description(PropertyList::Array{"a", "b c", true}),
              "(\n    a,\n    \"b c\",\n    1\n)");
    EXPECT_EQ(description(PropertyList::Dictionary{
                  {"k", PropertyList::Dictionary{{"quote\"", "ü\U0001F600"}}}}),
              "{\n    k =     {\n        \"quote\\\"\" = \"\\U00fc\\Ud83d\\Ude00\";\n    };\n}");
    EXPECT_EQ(description(PropertyList::Data(5, std::byte{0xAB})), "<abababab ab>");
    EXPECT_EQ(description(PropertyList::Date{978307200.0}), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(description(PropertyList::Date{1e300}).substr(4, 1), "-");
}

TEST(ZVHTTPUtils, RepliesAndErrorsSynchronouslyAndFromOneQueue) {
    test::FakePlatform fake;
    ZVHTTPUtils utils{fake.peer, fake.propertyLists, fake.loop};
    const auto request = ZVHTTPUtils::createPostURLRequest("https://h/get.php", {});
    ZVHTTPUtils::Failure error = platform::Error{"old", 1, ""};
    EXPECT_FALSE(utils.sendSynchronousRequest(request, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, platform::UrlErrorDomain);
    fake.peer.answer("get.php", "<html>");
    EXPECT_FALSE(utils.sendSynchronousRequest(request, &error));
    EXPECT_EQ(error->code, platform::PropertyListReadCorruptError);
    EXPECT_FALSE(utils.sendSynchronousRequest(request, nullptr));
    fake.peer.answer("get.php", fake.propertyLists.encode(7));
    EXPECT_EQ(utils.sendSynchronousRequest(request, &error), PropertyList(7));
    EXPECT_FALSE(error);

    fake.peer.requests.clear();
    std::vector<std::string> order;
    utils.sendAsynchronousRequest(request, [&](auto reply, auto error) {
        EXPECT_EQ(reply, PropertyList(7));
        EXPECT_FALSE(error);
        order.push_back("first");
    });
    utils.sendAsynchronousRequest(request, [&](auto, auto) { order.push_back("second"); });
    EXPECT_TRUE(fake.peer.requests.empty());
    fake.loop.settle();
    EXPECT_EQ(order, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(fake.peer.serialQueuesMade, 1);
}

}  // namespace
}  // namespace zelvo
