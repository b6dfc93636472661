#include "platform/linux/nat/RouterExplanation.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tests/support/FakePlatform.h"

using namespace zelvo::platform;
using namespace zelvo::test;

namespace {

NatPortMappingReply mapped(const char* address) {
    NatPortMappingReply reply;
    inet_pton(AF_INET, address, &reply.externalAddress);
    reply.externalPort = htons(23456);
    return reply;
}

NatPortMappingReply failed(std::int32_t code) {
    NatPortMappingReply reply;
    reply.errorCode = code;
    return reply;
}

}  // namespace

TEST(RouterExplanation, SaysWhyNobodyCanComeIn) {
    FakePlatform fake;
    RouterExplanation explanation(fake.bundle, fake.log);
    auto said = [&](const NatPortMappingReply& reply) {
        explanation.mappingReplied(std::nullopt);
        explanation.mappingReplied(reply);
        return explanation.text().value().substr(0, 24);
    };
    EXPECT_EQ(said(failed(NatErrorNoRouter)), "This computer is not con");
    EXPECT_EQ(said(failed(NatErrorPortMappingDisabled)), "Your router answered, bu");
    EXPECT_EQ(said(failed(NatErrorTimeout)), "Your router did not answ");
    EXPECT_EQ(said(failed(NatErrorTransient)), "Your router has no addre");
    EXPECT_EQ(said(mapped("44.0.0.1")), "");
    EXPECT_EQ(said(mapped("0.0.0.0")), "Your router is not conne");
    for (const auto* address : {"10.0.0.1", "172.31.255.255", "192.168.1.1", "100.127.255.255"})
        EXPECT_EQ(said(mapped(address)), "There is a second router") << address;
    for (const auto* address : {"172.32.0.0", "100.128.0.0", "11.0.0.0"})
        EXPECT_EQ(said(mapped(address)), "") << address;
    EXPECT_EQ(said(failed(NatErrorTimeout)), "Your router did not answ");
    explanation.mappingReplied(std::nullopt);
    EXPECT_EQ(explanation.text().value(), "") << "asked anew";
}

TEST(RouterExplanation, ComparesWithTheAddressThatTheServiceSaw) {
    FakePlatform fake;
    RouterExplanation explanation(fake.bundle, fake.log);
    explanation.mappingReplied(mapped("44.0.0.1"));
    for (const auto* address :
         {"44.0.0.1", "192.168.1.20", "127.0.0.1", "169.254.1.1", "2001:db8::1", "44.0.0.2 ", ""})
        explanation.seenFrom(address);
    EXPECT_EQ(explanation.text().value(), "");
    EXPECT_TRUE(fake.log.lines.empty());

    explanation.seenFrom("44.0.0.2");
    explanation.seenFrom("44.0.0.2");
    EXPECT_EQ(explanation.text().value().substr(0, 16), "You seem to be b");
    EXPECT_EQ(explanation.news(), "") << "a viewer may be there all the same";
    EXPECT_EQ(fake.log.lines.size(), 1U);
    explanation.mappingReplied(mapped("44.0.0.3"));
    EXPECT_EQ(explanation.text().value().substr(0, 12), "The way to t");
    EXPECT_EQ(explanation.news(), explanation.text().value());
    explanation.mappingReplied(mapped("44.0.0.1"));
    EXPECT_EQ(explanation.news() + explanation.text().value(), "") << "it leads here again";
    explanation.mappingReplied(std::nullopt);
    explanation.mappingReplied(mapped("44.0.0.3"));
    EXPECT_EQ(explanation.text().value(), "") << "nothing was seen of the new address yet";
}
