#ifdef ZELVO_POSTGRES
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "service/Names.h"
#include "service/SharingFields.h"
#include "tests/service/Databases.h"

namespace zelvo::service {
namespace {

using Outcome = LinkStore::Outcome;

std::string name(int number) {
    const auto text = std::to_string(number);
    return std::string(32 - text.size(), '0') + text;
}

LinkStore::Registration ordinary() {
    LinkStore::Registration registration;
    for (auto field : FactNames)
        registration.facts.emplace(field, "x");
    return registration;
}

/// Waits for what is asked for when it goes.
class Answers {
  public:
    ~Answers() { wait(); }
    std::function<void(Outcome)> expect() {
        ++asked_;
        return [this](Outcome outcome) { ++counts_[static_cast<int>(outcome)], ++told_; };
    }
    int count(Outcome outcome) {
        wait();
        return counts_[static_cast<int>(outcome)];
    }

  private:
    void wait() const {
        while (told_ < asked_)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::atomic<int> counts_[3]{};
    std::atomic<int> told_ = 0;
    int asked_ = 0;
};

TEST(PostgresLinkStore, ServicesThatShareADatabaseNeverComeBetweenAnOwnerAndTheLink) {
    Database database("postgresql");
    std::unique_ptr<LinkStore> stores[] = {database.open([] { return 1'000'000'000; }),
                                           database.open([] { return 1'000'000'000; })};
    if (!stores[0])
        GTEST_SKIP() << "PostgreSQL is missing";
    constexpr int links = 60;
    const auto ask = [&](auto&& each) {
        Answers answers;
        for (int i = 0; i < links; ++i)
            for (auto& store : stores)
                each(*store, i, answers.expect());
        return std::pair(answers.count(Outcome::Done), answers.count(Outcome::Unknown));
    };
    // The same names from both, in batches: each is made once, whatever else is in its batch.
    EXPECT_EQ(ask([&](LinkStore& store, int i, auto done) {
                  store.create({"", "", name(i), digestOf("owner"), ordinary()},
                               [done](const auto& created) { done(created.outcome); });
              }),
              std::pair(links, 0));
    // In opposite orders, in which two who wait for each other's rows would never end.
    EXPECT_EQ(ask([&](LinkStore& store, int i, auto done) {
                  store.replace(name(&store == stores[0].get() ? i : links - 1 - i),
                                digestOf("owner"), ordinary(), done);
              }),
              std::pair(2 * links, 0));
    EXPECT_EQ(ask([&](LinkStore& store, int i, auto done) {
                  store.remove(name(i), digestOf("owner"), done);
              }),
              std::pair(links, links));
}

TEST(PostgresLinkStore, FindsOutWhatBecameOfACommitThatWasCutOff) {
    Database database("postgresql");
    auto store = database.open([] { return 1'000'000'000; });
    if (!store)
        GTEST_SKIP() << "PostgreSQL is missing";
    // Who waits for a copy has the change on the disk, and cannot say so.
    database.run("ALTER SYSTEM SET synchronous_standby_names = 'nobody'");
    database.run("SELECT pg_reload_conf()");
    bool wasCut = false;
    for (int i = 0; i < 100 && !wasCut; ++i) {
        std::promise<Outcome> promise;
        auto outcome = promise.get_future();
        store->create({"", "", name(i), digestOf("owner"), ordinary()},
                      [&](const auto& created) { promise.set_value(created.outcome); });
        while (outcome.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready)
            wasCut |= database.ask(
                          "SELECT bool_or(pg_terminate_backend(pid)) IS TRUE FROM "
                          "pg_stat_activity WHERE wait_event = 'SyncRep'") == "t";
        EXPECT_EQ(outcome.get(), Outcome::Done);
    }
    EXPECT_TRUE(wasCut);
    database.run("ALTER SYSTEM RESET synchronous_standby_names");
    database.run("SELECT pg_reload_conf()");
}

TEST(PostgresLinkStore, RefusesDatabasesOfOthersAndComesBackByItself) {
    Database database("postgresql");
    const auto clock = [] { return 1'000'000'000; };
    auto store = database.open(clock);
    if (!store)
        GTEST_SKIP() << "PostgreSQL is missing";
    // As when the server has been restarted: nobody hears of it.
    database.run(
        "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE pid <> pg_backend_pid() "
        "AND backend_type = 'client backend'");
    Answers answers;
    store->remove(name(1), digestOf("owner"), answers.expect());
    store->find(name(1),
                [done = answers.expect()](Outcome outcome, const auto&) { done(outcome); });
    EXPECT_EQ(answers.count(Outcome::Unknown), 2);
    EXPECT_TRUE(store->isWell());
    store.reset();
    database.run("UPDATE zelvo_layout SET version = 9");
    EXPECT_FALSE(database.open(clock));
    database.run("DROP TABLE zelvo_layout");
    EXPECT_FALSE(database.open(clock));
}

}  // namespace
}  // namespace zelvo::service
#endif
