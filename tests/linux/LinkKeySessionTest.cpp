#include "platform/linux/link_key/LinkKeySession.h"

#include <gtest/gtest.h>

#include "link/LinkManager.h"
#include "tests/support/FakePlatform.h"

using namespace zelvo::platform;
using namespace zelvo::test;

namespace {

std::string asText(const UrlRequest& request) {
    return {reinterpret_cast<const char*>(request.body.data()), request.body.size()};
}

std::string keyOf(const std::string& link) {
    return link.substr(link.find('#'));
}

const std::string someKey = "oKGio6SlpqeoqaqrrK2urw";

/// The core's side of the link on a service that is never to hear of a key.
struct LinkKeySessionTest : testing::Test {
    LinkKeySessionTest() {
        for (const auto* endpoint : {"get.php", "update.php", "delete.php"})
            fake.peer.answer(endpoint, fake.propertyLists.encode(PropertyList::Dictionary{}));
        fake.router.grantAll("203.0.113.7");
    }
    /// The link's text once the service has answered with this one; empty where there is none.
    std::string create(const std::string& given) {
        fake.peer.answer("create.php", fake.propertyLists.encode(PropertyList::Dictionary{
                                           {"StatusCode", 0}, {"link", given}, {"more", "of it"}}));
        std::string text;
        manager->createSharedLinkWithInternalPort(
            5900, [&](auto, auto, const auto& link) { text = link.value_or(""); });
        fake.loop.settle();
        return text;
    }
    std::string sent(const std::string& endpoint, const std::string& field) const {
        return fake.peer.last(endpoint).fields.at(field);
    }
    std::string kept() {
        return fake.userDefaults.stringForKey("permanentSharedLink").value_or("");
    }

    FakePlatform fake;
    /// What was told last, as the text of a link; empty for none.
    std::string told = "nothing yet";
    std::optional<bool> hasKey;
    LinkKeySession session{
        fake.peer,
        fake.propertyLists,
        {.write =
             [this](const auto& reply) {
                 EXPECT_EQ(reply.size(), 2U) << "what the service made up is written again";
                 return fake.propertyLists.encode(reply);
             },
         .changed =
             [this](const auto* link) {
                 told = link ? zelvo::sealing::linkText(*link).value_or("no text") : "";
             },
         .registered = [this](bool has) { hasKey = has; }}};
    std::shared_ptr<zelvo::LinkManager> manager =
        std::make_shared<zelvo::LinkManager>(fake.with(fake, fake.bundle, fake.workspace, session));
};

TEST_F(LinkKeySessionTest, AKeyLivesAndEndsWithItsIdentifier) {
    fake.userDefaults.setString("permanentSharedLink", "before");
    const auto first = create("before");
    ASSERT_TRUE(first.starts_with("zelvo://before#") && first.size() == 8 + 7 + 22) << first;
    EXPECT_EQ(told, first);
    EXPECT_EQ("zelvo://" + kept(), first);
    EXPECT_EQ(sent("get.php", "link"), "before");
    EXPECT_EQ(create("before"), first);
    EXPECT_EQ(sent("create.php", "permanentSharedLink"), "before");

    manager->computerNameChanged("desk");
    EXPECT_EQ(told, first) << "an update ends nothing by itself";
    manager->invalidateLink(nullptr);
    EXPECT_EQ(told, "");
    EXPECT_EQ(sent("update.php", "sharedLink"), "before");
    EXPECT_EQ(create("before"), first) << "it was only marked unavailable";

    const auto other = create("other");
    EXPECT_EQ(told, other);
    EXPECT_NE(keyOf(other), keyOf(first));
    manager->endLink();
    EXPECT_EQ(told, "");
    EXPECT_EQ(sent("delete.php", "link"), "other");
    fake.userDefaults.setString("permanentSharedLink", other.substr(8));
    const auto again = create("other");
    EXPECT_NE(again, other)
        << "kept by settings that cannot be written, the deleted key comes back";
    EXPECT_EQ(create("other"), again);
    for (const auto& request : fake.peer.requests)
        EXPECT_EQ(asText(request.request).find("%23"), std::string::npos) << request.endpoint;
}

TEST_F(LinkKeySessionTest, WhatCannotHaveAKeyStaysAsItIs) {
    // The last one would have a key of the service's choice, who could then be in between.
    const std::pair<std::string, bool> given[] = {{"a b", true},
                                                  {std::string(129, 'x'), true},
                                                  {"ä", true},
                                                  {"a#b", true},
                                                  {"a#" + someKey, false}};
    for (const auto& [identifier, isTaken] : given) {
        EXPECT_EQ(create(identifier), isTaken ? "zelvo://" + identifier : "");
        EXPECT_EQ(told, "nothing yet");
        EXPECT_EQ(hasKey.value_or(true), !isTaken) << identifier;
        hasKey = {};
        if (isTaken) {
            EXPECT_EQ(sent("get.php", "link"), identifier);
        }
    }
    // The same characters elsewhere are nobody's key.
    UrlRequest request;
    request.url = "https://share.example/update.php";
    for (const auto& [form, bare] : std::map<std::string, std::string>{
             {"ComputerName=a%23" + someKey + "&sharedLink=b%23" + someKey + "&Port=1",
              "ComputerName=a%23" + someKey + "&sharedLink=b&Port=1"},
             {"permanentSharedLink=&x", "permanentSharedLink=&x"}}) {
        const auto bytes = std::as_bytes(std::span(form));
        request.body.assign(bytes.begin(), bytes.end());
        session.sendSynchronously(request);
        EXPECT_EQ(asText(fake.peer.requests.back().request), bare);
    }
}

}  // namespace
