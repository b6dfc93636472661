#include "port_mapping/PortMapper.h"

#include <gtest/gtest.h>

#include "tests/support/FakePlatform.h"

namespace zelvo {
namespace {

using platform::Error;

class PortMapperTest : public ::testing::Test {
  protected:
    void ask(std::uint16_t internal = 5900, std::uint16_t external = 20000) {
        mapper.tryMappingPort(internal, external,
                              [this](bool success, std::optional<std::string> address,
                                     std::uint16_t port, std::optional<Error> error) {
                                  ++answers;
                                  std::tie(this->success, this->address, this->port, this->error) =
                                      std::tie(success, address, port, error);
                              });
    }

    test::ManualLoop loop;
    test::ScriptedRouter router{loop};
    PortMapper mapper{router};
    int answers = 0;
    bool success = false;
    std::optional<std::string> address;
    std::uint16_t port = 0;
    std::optional<Error> error;
};

TEST_F(PortMapperTest, AsksForBothProtocolsAndReportsTheGrantOnce) {
    ask();
    ASSERT_EQ(router.requests.size(), 1u);
    const auto& request = router.requests[0];
    EXPECT_EQ(request.asked.protocol, 0x30u);
    EXPECT_EQ(request.asked.flags, 0u);
    EXPECT_EQ(request.asked.interfaceIndex, 0u);
    EXPECT_EQ(request.asked.ttl, 0u);
    EXPECT_EQ(request.internalPort, 5900);
    EXPECT_EQ(request.externalPort, 20000);
    EXPECT_EQ(answers, 0);

    router.reply("203.0.113.7", 20001);
    loop.settle();
    EXPECT_EQ(answers, 1);
    EXPECT_TRUE(success);
    EXPECT_EQ(address, "203.0.113.7");
    EXPECT_EQ(port, 20001);
    EXPECT_FALSE(error);
    EXPECT_EQ(mapper.internalPort(), 5900);
    EXPECT_FALSE(mapper.portMapperCompletion());

    router.reply("203.0.113.8", 20002);
    loop.settle();
    EXPECT_EQ(answers, 1);
    EXPECT_EQ(mapper.externalPort(), 20002);
    EXPECT_EQ(mapper.externalIPAddress(), "203.0.113.7");
    EXPECT_EQ(router.open, 1);
}

TEST_F(PortMapperTest, ThePortAloneDecidesAndAFailureCloses) {
    ask();
    router.reply("0.0.0.0", 5);
    loop.settle();
    EXPECT_TRUE(success);
    EXPECT_EQ(address, "0.0.0.0");

    mapper.close();
    ask();
    router.reply("203.0.113.7", 0, 0);
    loop.settle();
    EXPECT_FALSE(success);
    EXPECT_EQ(address, "203.0.113.7");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, -65549);
    EXPECT_EQ(error->domain, PortMapperErrorDomain);
    EXPECT_EQ(mapper.service(), nullptr);

    ask();
    router.reply("0.0.0.0", 0, platform::NatErrorNoRouter);
    loop.settle();
    EXPECT_EQ(error->code, platform::NatErrorNoRouter);
    EXPECT_EQ(router.open, 0);
}

TEST_F(PortMapperTest, ARefusalAnswersBeforeTheCallReturns) {
    router.createError = platform::NatErrorNotRunning;
    ask();
    EXPECT_EQ(answers, 1);
    EXPECT_FALSE(success);
    EXPECT_FALSE(address);
    EXPECT_EQ(port, 0);
    EXPECT_EQ(error->code, platform::NatErrorNotRunning);

    router.createError = 0;
    router.queueError = platform::NatErrorNoMemory;
    ask();
    EXPECT_EQ(answers, 2);
    EXPECT_EQ(error->code, platform::NatErrorNoMemory);
    EXPECT_EQ(router.open, 0);
    EXPECT_EQ(mapper.service(), nullptr);
}

TEST_F(PortMapperTest, ARequestClosedBeforeItsReplyNeverAnswers) {
    ask();
    router.reply("203.0.113.7", 20000);
    mapper.close();
    loop.settle();
    EXPECT_EQ(answers, 0);
    EXPECT_TRUE(mapper.portMapperCompletion());
    mapper.close();
    EXPECT_EQ(router.closed, 1);

    // The next request replaces the one that was left.
    ask(5901, 30000);
    router.reply("203.0.113.7", 30000);
    loop.settle();
    EXPECT_EQ(answers, 1);
    EXPECT_EQ(port, 30000);
}

}  // namespace
}  // namespace zelvo
