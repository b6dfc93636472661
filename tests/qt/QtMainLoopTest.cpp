#include "platform/qt/core/QtMainLoop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/qt/Wait.h"

namespace zelvo::platform {
namespace {

using namespace std::chrono_literals;
using test::waitFor;

TEST(QtMainLoop, RunsJobsOfAnyThreadLaterAndInOrder) {
    QtMainLoop loop;
    std::string order;
    bool inside = true;
    loop.async([&] {
        EXPECT_FALSE(inside);
        order += "a";
        loop.async([&] { order += "d"; });
        order += "b";
    });
    std::thread([&] { loop.async([&] { order += "c"; }); }).join();
    EXPECT_EQ(order, "");
    inside = false;
    EXPECT_TRUE(waitFor([&] { return order == "abcd"; }));
}

TEST(QtMainLoop, ClosingDestroysWhatWaits) {
    QtMainLoop loop;
    bool ran = false;
    auto owned = std::make_shared<int>(0);
    // A closure that queues another one while it is destroyed must not find a held lock.
    auto last = std::shared_ptr<int>(new int(0), [&](int* value) {
        delete value;
        loop.async([&] { ran = true; });
    });
    loop.async([&, owned, last = std::move(last)] { ran = true; });
    EXPECT_TRUE(loop.isOpen());
    loop.close();
    EXPECT_FALSE(loop.isOpen());
    EXPECT_EQ(owned.use_count(), 1);
    loop.async([&, owned] { ran = true; });
    EXPECT_EQ(owned.use_count(), 1);
    bool turned = false;
    QTimer::singleShot(0, [&] { turned = true; });
    EXPECT_TRUE(waitFor([&] { return turned; }));
    EXPECT_FALSE(ran);
}

TEST(QtMainLoop, TimersAndPerformsEndWithTheirObjectsEvenFromInside) {
    QtMainLoop loop;
    int ticks = 0;
    std::unique_ptr<Timer> timer;
    timer = loop.scheduleTimer(1ms, [&](Timer& own) {
        EXPECT_EQ(&own, timer.get());
        if (++ticks == 2)
            timer.reset();
    });
    std::unique_ptr<Perform> delayed;
    std::unique_ptr<Perform> turn;
    std::string calls;
    delayed = loop.performAfterDelay(1ms, [&] {
        delayed.reset();
        calls += "d";
    });
    turn = loop.performOnNextTurn([&] {
        turn = loop.performOnNextTurn([&] { calls += "2"; });
        calls += "1";
    });
    auto withdrawn = loop.performOnNextTurn([&] { calls += "x"; });
    withdrawn.reset();
    auto late = loop.performAfterDelay(0ms, [&] { calls += "x"; });
    late.reset();
    EXPECT_TRUE(waitFor([&] { return calls.size() == 3 && ticks == 2; })) << calls;
    EXPECT_FALSE(timer);
    EXPECT_EQ(calls.find('x'), std::string::npos);

    auto invalid = loop.scheduleTimer(1ms, [&](Timer&) { ticks = 100; });
    invalid->invalidate();
    EXPECT_FALSE(invalid->isValid());
    auto marker = loop.performAfterDelay(5ms, [&] { calls = "end"; });
    EXPECT_TRUE(waitFor([&] { return calls == "end"; }));
    EXPECT_EQ(ticks, 2);
}

TEST(QtMainLoop, TicksThatAreDueWhileAMenuIsOpenWait) {
    QtMainLoop loop;
    int ticks = 0;
    int jobs = 0;
    auto timer = loop.scheduleTimer(1ms, [&](Timer&) { ++ticks; });
    auto gone = loop.performAfterDelay(1ms, [&] { ticks = 100; });
    {
        QtMainLoop::Tracking menu(loop);
        auto marker = std::make_unique<QTimer>();
        for (int i = 0; i < 5; ++i)
            QTimer::singleShot(10 * i, [&] { loop.async([&] { ++jobs; }); });
        EXPECT_TRUE(waitFor([&] { return jobs == 5; }));
        EXPECT_EQ(ticks, 0);
        gone.reset();
    }
    EXPECT_EQ(ticks, 0);
    EXPECT_TRUE(waitFor([&] { return ticks >= 1; }));
    EXPECT_LT(ticks, 100);
}

TEST(QtMainLoop, PacesCallsThatQueueThemselvesAnew) {
    QtMainLoop loop;
    int turns = 0;
    std::unique_ptr<Perform> perform;
    std::function<void()> call = [&] {
        ++turns;
        perform = loop.performOnNextTurn(call);
    };
    // Timers come late where much is going on, so the bounds are wide: calm 11 turns a second,
    // hasty 55.
    auto turnsIn = [&](std::chrono::milliseconds time) {
        turns = 0;
        bool over = false;
        QTimer::singleShot(time, Qt::PreciseTimer, [&] { over = true; });
        EXPECT_TRUE(waitFor([&] { return over; }));
        return turns;
    };
    call();
    EXPECT_LE(turnsIn(300ms), 5);
    loop.hurry(true);
    EXPECT_GE(turnsIn(300ms), 7);
    loop.hurry(false);
    EXPECT_GE(turnsIn(300ms), 7) << "for a while after, too";
    turns = 0;
    loop.takeTurnNow();
    EXPECT_EQ(turns, 1);
    perform.reset();
    loop.takeTurnNow();
    EXPECT_EQ(turns, 1);
}

}  // namespace
}  // namespace zelvo::platform
