#include "platform/linux/relay/ReachCheck.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>

#include "tests/support/FakePlatform.h"

using namespace zelvo::platform;
using namespace zelvo::test;
using namespace std::chrono_literals;

TEST(ReachCheck, SaysWhereNobodyGetsThroughWhileThatIsSo) {
    FakePlatform fake;
    int count = 0;
    const QCoreApplication application(count, nullptr);
    std::function<void(const ReachCheck::Reply&)> answer;
    ReachCheck check(fake.bundle, fake.log,
                     {.after = 1ms, .ask = [&](auto done) { answer = std::move(done); }});
    const auto said = [&](const ReachCheck::Reply& reply) {
        answer = nullptr;
        check.linkIsRegistered();
        while (!answer)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        answer(reply);
        return check.text().value();
    };
    const PropertyList barred(PropertyList::Dictionary{{"Reached", PropertyList(0)}});
    check.portIs(5900);
    EXPECT_NE(said(barred).find("port 5900 (TCP)"), std::string::npos);
    EXPECT_EQ(said(PropertyList(PropertyList::Dictionary{{"Reached", PropertyList(1)}})), "");
    said(barred);
    EXPECT_EQ(said(std::nullopt), "") << "nothing is known";
    said(barred);
    check.forget();
    EXPECT_EQ(check.text().value(), "");
    answer(barred);
    EXPECT_EQ(check.text().value(), "") << "of a link that has gone";
}
