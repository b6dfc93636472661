#include "serving/Budgets.h"

#include <gtest/gtest.h>

#include "serving/ClientAddress.h"

using namespace zelvo::serving;
using namespace std::chrono_literals;

TEST(Allowances, ComeBackWithTimeAndNeverMoreThanThereWere) {
    Allowances allowances({2, 0.5}, 2);
    const auto begun = Allowances::Clock::now();
    const auto take = [&](const char* key, std::chrono::milliseconds after) {
        return allowances.take(key, begun + after);
    };
    EXPECT_TRUE(take("a", 0ms));
    EXPECT_TRUE(take("a", 0ms));
    EXPECT_FALSE(take("a", 1900ms));
    EXPECT_TRUE(take("b", 1900ms));
    EXPECT_TRUE(take("a", 2100ms));
    EXPECT_FALSE(take("a", 2100ms));
    for (bool isThere : {true, true, false})
        EXPECT_EQ(take("a", 1h), isThere);
    // The one that was asked for longest ago gives way.
    EXPECT_TRUE(take("c", 1h));
    EXPECT_FALSE(take("a", 1h));
}

TEST(ClientAddress, IsOneClientAsItsBudgetCounts) {
    const auto key = [](const char* text) { return ClientAddress::parse(text)->budgetKey(); };
    EXPECT_EQ(key("2001:db8:1:2::3"), key("2001:db8:1:2:ffff::4"));
    EXPECT_NE(key("2001:db8:1:2::3"), key("2001:db8:1:3::3"));
    EXPECT_EQ(key("::ffff:192.0.2.1"), key("192.0.2.1"));
    EXPECT_NE(key("192.0.2.1"), key("192.0.2.2"));
    EXPECT_EQ(ClientAddress::parse("::ffff:192.0.2.1")->text(), "192.0.2.1");
    EXPECT_FALSE(ClientAddress::parse("192.0.2"));
}
