#include "link/LinkManager.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::PropertyList;
using Fields = std::map<std::string, std::string>;

class LinkManagerTest : public ::testing::Test {
  protected:
    LinkManagerTest() {
        fake.hardware.setAddress({0x00, 0x16, 0xCB, 0x8A, 0x3F, 0x21});
        serviceAnswers(PropertyList::Dictionary{{"StatusCode", 0}, {"link", "abc-123"}});
        for (const auto* endpoint : {"get.php", "update.php"})
            fake.peer.answer(endpoint, fake.propertyLists.encode(PropertyList::Dictionary{}));
        manager = std::make_shared<LinkManager>(fake.platform);
    }
    ~LinkManagerTest() override {
        if (manager)
            manager->abandonPendingMapping();
    }

    void serviceAnswers(const PropertyList& value) {
        fake.peer.answer("create.php", fake.propertyLists.encode(value));
    }
    void create() {
        manager->createSharedLinkWithInternalPort(
            5900, [this](std::optional<std::string> address, std::int64_t port,
                         std::optional<std::string> link) {
                ++answers;
                std::tie(this->address, this->port, this->link) = std::tie(address, port, link);
            });
    }
    void createAndSettle() {
        fake.router.grantAll("203.0.113.7");
        create();
        fake.loop.settle();
    }
    bool logged(const std::string& line) const {
        return std::count(fake.log.lines.begin(), fake.log.lines.end(), line) > 0;
    }

    test::FakePlatform fake;
    std::shared_ptr<LinkManager> manager;
    int answers = 0;
    std::optional<std::string> address;
    std::int64_t port = 0;
    std::optional<std::string> link;
};

TEST_F(LinkManagerTest, TheWholeRoadOfOneLink) {
    fake.random.next = 55533;
    fake.userDefaults.values["permanentSharedLink"] = "kept";
    createAndSettle();

    EXPECT_EQ(answers, 1);
    EXPECT_EQ(address, "203.0.113.7");
    EXPECT_EQ(port, 65533);
    EXPECT_EQ(link, "zelvo://abc-123");
    EXPECT_EQ(fake.router.requests[0].internalPort, 5900);
    EXPECT_EQ(fake.router.requests[0].externalPort, 65533);
    EXPECT_EQ(fake.peer.endpoints(), (std::vector<std::string>{"create.php", "get.php"}));
    const auto& request = fake.peer.last("create.php");
    EXPECT_EQ(request.request.url, "https://share.example/app/4.8.1/sharing/create.php");
    EXPECT_EQ(request.fields, (Fields{{"ComputerName", "Anna's Computer"},
                                      {"LocalHostname", "annas-computer.local."},
                                      {"vncPort", "5900"},
                                      {"IPAddress", "203.0.113.7"},
                                      {"Port", "65533"},
                                      {"MacAddress", "0016cb8a3f21"},
                                      {"LastKeyboardLocale", "us"},
                                      {"MappedService", "vnc"},
                                      {"HotKeys", manager->getSystemInformation()},
                                      {"permanentSharedLink", "kept"}}));
    EXPECT_EQ(fake.peer.last("get.php").fields, (Fields{{"link", "abc-123"}}));
    EXPECT_EQ(fake.userDefaults.stringForKey("permanentSharedLink"), "abc-123");
    EXPECT_TRUE(logged("Anna's Computer -> annas-computer.local."));
}

TEST_F(LinkManagerTest, ThePortStaysInItsRange) {
    for (auto [random, expected] : {std::pair<std::uint32_t, int>{0, 10000},
                                    {55534, 10000},
                                    {4294967295u, 10000 + 4294967295u % 55534}}) {
        fake.random.next = random;
        create();
        EXPECT_EQ(fake.router.requests.back().externalPort, expected);
    }
    // Each request closes the one before, whose completion never comes.
    EXPECT_EQ(fake.router.open, 1);
    fake.router.reply("203.0.113.7", 12345);
    fake.loop.settle();
    EXPECT_EQ(answers, 1);
    EXPECT_EQ(port, 12345);
}

TEST_F(LinkManagerTest, AFailedMappingEndsBeforeTheServiceIsAsked) {
    fake.router.createError = platform::NatErrorNotRunning;
    create();
    EXPECT_EQ(answers, 0);
    fake.loop.settle();
    EXPECT_EQ(answers, 1);
    EXPECT_FALSE(address || link);
    EXPECT_EQ(port, LinkManagerPortMappingFailed);
    EXPECT_EQ(manager->publicPort(), -1);
    EXPECT_TRUE(fake.peer.requests.empty());
    EXPECT_TRUE(logged("Anna's Computer -> annas-computer.local."));
}

TEST_F(LinkManagerTest, OnlyTheNumberZeroAndALinkAreSuccess) {
    using Map = PropertyList::Dictionary;
    const std::vector<PropertyList> refusals{Map{{"StatusCode", "0"}, {"link", "x"}},
                                             Map{{"StatusCode", false}, {"link", "x"}},
                                             Map{{"StatusCode", 5}, {"link", "x"}},
                                             Map{{"link", "x"}},
                                             Map{{"StatusCode", 0}},
                                             Map{{"StatusCode", 0}, {"link", 12}},
                                             PropertyList::Array{0, "x"},
                                             "StatusCode"};
    for (const auto& refusal : refusals) {
        serviceAnswers(refusal);
        createAndSettle();
        EXPECT_FALSE(address);
        EXPECT_EQ(port, LinkManagerRegistrationFailed);
    }
    EXPECT_EQ(answers, static_cast<int>(refusals.size()));
    EXPECT_EQ(fake.peer.count("get.php"), 0u);
    EXPECT_EQ(fake.router.open, 1);
    EXPECT_FALSE(manager->sharedLink());
    serviceAnswers(PropertyList::Dictionary{{"StatusCode", 0.0}, {"link", "x"}});
    createAndSettle();
    EXPECT_EQ(link, "zelvo://x");
}

TEST_F(LinkManagerTest, TransportFailuresAreLoggedAndOnlyTheCreateMatters) {
    for (const auto& [body, line] :
         {std::pair("<html>gone</html>", "<html>gone</html>"),
          {"\xff\xfe", "(null)"},
          {"", "Error Domain=NSURLErrorDomain Code=7 \"no connection\""}}) {
        if (*body)
            fake.peer.answer("create.php", body);
        else
            fake.peer.fail("create.php");
        createAndSettle();
        EXPECT_EQ(port, LinkManagerRegistrationFailed);
        EXPECT_TRUE(logged(line)) << line;
    }
    serviceAnswers(PropertyList::Dictionary{{"StatusCode", 0}, {"link", "abc-123"}});
    fake.peer.fail("get.php");
    createAndSettle();
    EXPECT_EQ(link, "zelvo://abc-123");
}

TEST_F(LinkManagerTest, WithdrawalKeepsTheLinkAndClosesAfterTheAnswer) {
    int done = 0;
    fake.router.grantAll("203.0.113.7");
    manager->invalidateLink([&] { ++done; });
    EXPECT_EQ(done, 1);
    EXPECT_TRUE(fake.peer.requests.empty());

    createAndSettle();
    fake.userDefaults.values["permanentSharedLink"] = "changed meanwhile";
    fake.peer.hold(true);
    fake.peer.fail("update.php");
    manager->invalidateLink([&] { ++done; });
    EXPECT_EQ(fake.userDefaults.stringForKey("permanentSharedLink"), "abc-123");
    fake.loop.settle();
    EXPECT_EQ(fake.router.open, 1);
    EXPECT_EQ(done, 1);
    const auto& fields = fake.peer.last("update.php").fields;
    EXPECT_EQ(fields.size(), 11u);
    EXPECT_EQ(fields.at("sharedLink"), "abc-123");
    EXPECT_EQ(fields.at("availabilityStatus"), "1");
    fake.peer.release();
    fake.loop.settle();
    EXPECT_EQ(done, 2);
    EXPECT_EQ(fake.router.open, 0);
    EXPECT_EQ(fake.peer.count("delete.php"), 0u);
    EXPECT_EQ(manager->sharedLink(), "abc-123");
}

TEST_F(LinkManagerTest, WithNewLinksTheOldOneIsDeletedAndForgotten) {
    fake.userDefaults.values["useNewLinkAtEveryLaunch"] = true;
    fake.userDefaults.values["permanentSharedLink"] = "kept";
    createAndSettle();
    EXPECT_EQ(fake.peer.last("create.php").fields.at("permanentSharedLink"), "");
    EXPECT_EQ(fake.userDefaults.values.count("permanentSharedLink"), 0u);

    bool done = false;
    fake.userDefaults.values["permanentSharedLink"] = "kept by another";
    manager->invalidateLink([&] { done = true; });
    EXPECT_EQ(fake.userDefaults.values.count("permanentSharedLink"), 0u);
    EXPECT_FALSE(done);
    fake.loop.settle();
    EXPECT_TRUE(done);
    EXPECT_EQ(fake.peer.last("delete.php").fields, (Fields{{"link", "abc-123"}}));
    EXPECT_EQ(fake.peer.count("update.php"), 0u);
    EXPECT_EQ(fake.router.open, 0);
}

TEST_F(LinkManagerTest, AWithdrawalUnderWayLeavesALaterMappingAlone) {
    createAndSettle();
    fake.peer.hold(true);
    manager->invalidateLink(nullptr);
    create();
    fake.peer.release();
    fake.loop.settle();
    EXPECT_EQ(answers, 2);
    EXPECT_EQ(fake.router.open, 1);
    EXPECT_EQ(link, "zelvo://abc-123");
}

TEST_F(LinkManagerTest, NameChangesArePublishedOnceThereIsALink) {
    fake.dynamicStore.notify({"key:computer", "key:hosts"});
    fake.loop.settle();
    EXPECT_TRUE(fake.peer.requests.empty());

    createAndSettle();
    fake.dynamicStore.computerName = "New & Shiny";
    fake.inputSources.id = std::nullopt;
    fake.hardware.match.services.clear();
    fake.dynamicStore.notify({"key:computer"});
    fake.loop.settle();
    ASSERT_EQ(fake.peer.count("update.php"), 1u);
    const auto& update = fake.peer.last("update.php");
    EXPECT_EQ(update.fields.at("availabilityStatus"), "0");
    EXPECT_EQ(update.fields.at("LastKeyboardLocale"), "");
    EXPECT_EQ(update.fields.at("MacAddress"), "");
    // A name is not told from the fields behind it.
    EXPECT_EQ(update.fields.at("ComputerName"), "New ");
    EXPECT_TRUE(logged("New & Shiny"));

    // Without a public address there is nothing to publish; a withdrawal still completes.
    fake.router.refuseAll(platform::NatErrorTimeout);
    createAndSettle();
    fake.dynamicStore.notify({"key:hosts"});
    bool done = false;
    manager->invalidateLink([&] { done = true; });
    fake.loop.settle();
    EXPECT_EQ(fake.peer.count("update.php"), 1u);
    EXPECT_TRUE(done);
}

TEST_F(LinkManagerTest, PendingCompletionsKeepItAliveAndNoneOutlivesIt) {
    std::weak_ptr<LinkManager> weak = manager;
    create();
    manager.reset();
    EXPECT_FALSE(weak.expired());
    fake.router.reply("203.0.113.7", 20000);
    fake.loop.settle();
    EXPECT_EQ(answers, 1);
    // Gone now, and on its way it withdrew the link and closed the mapping.
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(fake.peer.last("update.php").fields.at("availabilityStatus"), "1");
    EXPECT_EQ(fake.router.open, 0);

    fake.dynamicStore.notify({"key:computer"});
    fake.loop.settle();
    EXPECT_EQ(fake.peer.count("update.php"), 1u);
}

TEST_F(LinkManagerTest, TheFlatBuilderTakesCollectionsAsTextAndNeverWritesTheError) {
    const PropertyList::Array tags{"a"};
    auto request = manager->createPostURLRequest("https://h/get.php", {{"tags", tags}});
    platform::Error error{"untouched", 1, ""};
    bool failed = false;
    fake.peer.fail("get.php");
    manager->sendRequest(request, &error, [&](LinkManager::Reply reply) { failed = !reply; });
    fake.loop.settle();
    EXPECT_EQ(fake.peer.last("get.php").fields, (Fields{{"tags", "(\n    a\n)"}}));
    EXPECT_TRUE(failed);
    EXPECT_EQ(error.domain, "untouched");
}

}  // namespace
}  // namespace zelvo
