#include "platform/PropertyList.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/Observable.h"

namespace zelvo::platform {
namespace {

TEST(PropertyList, NumberReadingsNeverOverflow) {
    using Limits = std::numeric_limits<std::int64_t>;
    EXPECT_EQ(PropertyList("  -42 apples").integerReading(), -42);
    EXPECT_EQ(PropertyList("ssh").integerReading(), 0);
    EXPECT_EQ(PropertyList("99999999999999999999").integerReading(), Limits::max());
    EXPECT_EQ(PropertyList("-9223372036854775808").integerReading(), Limits::min());
    EXPECT_EQ(PropertyList("-99999999999999999999").integerReading(), Limits::min());
    EXPECT_EQ(PropertyList(1e300).integerReading(), Limits::max());
    EXPECT_EQ(PropertyList(-1e300).integerReading(), Limits::min());
    EXPECT_EQ(PropertyList(std::numeric_limits<double>::quiet_NaN()).integerReading(), 0);
    EXPECT_EQ(PropertyList(-3.9).integerReading(), -3);
    EXPECT_EQ(PropertyList(true).integerReading(), 1);
    EXPECT_FALSE(PropertyList(PropertyList::Array{}).integerReading());

    EXPECT_EQ(PropertyList(std::int64_t{1} << 32 | 7).int32Reading(), 7);
    EXPECT_EQ(PropertyList("4294967303").int32Reading(), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(PropertyList(PropertyList::Dictionary{}).int32Reading(), 0);
}

TEST(PropertyList, BooleanReadings) {
    for (const char* yes : {"YES", "yes", "True", "t", "1", "9x"})
        EXPECT_TRUE(PropertyList(yes).booleanReading()) << yes;
    for (const char* no : {"", "NO", "false", "0", "on", " 1"})
        EXPECT_FALSE(PropertyList(no).booleanReading()) << no;
    EXPECT_TRUE(PropertyList(0.5).booleanReading());
    EXPECT_FALSE(PropertyList(PropertyList::Array{true}).booleanReading());
}

TEST(Observable, TellsOfEveryWriteUntilTheSubscriptionEnds) {
    int told = 0;
    int toldAfterEnd = 0;
    Subscription outliving;
    {
        Observable<int> number(1);
        Subscription second;
        auto first = number.subscribe([&](int) {
            ++told;
            second = Subscription();
        });
        second = number.subscribe([&](int) { ++toldAfterEnd; });
        outliving = number.subscribe([](int) {});
        number.set(1);
        number.set(2);
        EXPECT_EQ(number.value(), 2);
    }
    EXPECT_EQ(told, 2);
    EXPECT_EQ(toldAfterEnd, 0);
}

}  // namespace
}  // namespace zelvo::platform
