#include "service/SqliteLinkStore.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <csignal>
#include <future>

#include "service/Names.h"
#include "service/SharingFields.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::service {
namespace {

using Outcome = LinkStore::Outcome;

class LinkStoreTest : public testing::Test {
  protected:
    LinkStoreTest() {
        for (auto name : FactNames)
            registration.facts.emplace(name, "x");
    }
    std::unique_ptr<SqliteLinkStore> open() {
        error.clear();
        return SqliteLinkStore::open(
            file, [] { return 1'000'000'000; }, error);
    }
    static std::string name(int number) {
        auto text = std::to_string(number);
        return text.insert(0, 32 - text.size(), '0');
    }
    Outcome insert(LinkStore& store, int number) {
        std::promise<Outcome> promise;
        store.create({"", "", name(number), digestOf(name(number)), registration},
                     [&](const auto& created) { promise.set_value(created.outcome); });
        return promise.get_future().get();
    }
    static Outcome find(LinkStore& store, int number) {
        auto result = Outcome::Failed;
        store.find(name(number), [&](Outcome outcome, const auto&) { result = outcome; });
        return result;
    }

    /// Somebody else's hands on the database, until they are destroyed.
    std::shared_ptr<sqlite3> intrude(const char* sql) const {
        sqlite3* database = nullptr;
        sqlite3_open(file.c_str(), &database);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
        return {database, sqlite3_close};
    }

    test::TemporaryFolder folder;
    std::string file = folder / "links.db";
    std::string error;
    LinkStore::Registration registration;
};

TEST_F(LinkStoreTest, SaysWhyADatabaseCannotBeUsed) {
    ASSERT_TRUE(open());
    intrude("PRAGMA user_version = 9");
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "written by another version of this service");
    folder.write("links.db", std::string(5000, '?'));
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "file is not a database");

    std::filesystem::remove(file);
    intrude("CREATE TABLE letters (text)");
    auto before = std::filesystem::file_size(file);
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "not a database of this service");
    EXPECT_EQ(std::filesystem::file_size(file), before);
}

TEST_F(LinkStoreTest, ALockedOrFullDatabaseFailsAndRecovers) {
    auto store = open();
    ASSERT_EQ(insert(*store, 1), Outcome::Done);
    auto intruder = intrude("BEGIN IMMEDIATE");
    EXPECT_EQ(insert(*store, 2), Outcome::Failed);
    EXPECT_FALSE(store->isWell());
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "database is locked");
    intruder.reset();
    EXPECT_EQ(find(*store, 2), Outcome::Unknown);
    EXPECT_EQ(insert(*store, 2), Outcome::Done);
    EXPECT_EQ(insert(*store, 2), Outcome::Failed) << "which fails that change alone";

    // A disk that takes nothing more.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(insert(*store, 3), Outcome::Failed);
    EXPECT_EQ(find(*store, 1), Outcome::Done);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(insert(*store, 3), Outcome::Done);
    EXPECT_TRUE(store->isWell());
}

TEST_F(LinkStoreTest, TakesOverTheLinksOfTheLayoutBefore) {
    std::string facts;
    std::string values;
    for (auto name : FactNames) {
        facts.append(", ").append(name).append(" TEXT NOT NULL");
        values += ", 'x'";
    }
    intrude(("CREATE TABLE links (link TEXT PRIMARY KEY NOT NULL, availabilityStatus INTEGER NOT "
             "NULL" +
             facts + ") WITHOUT ROWID; INSERT INTO links VALUES ('" + name(1) + "', 0" + values +
             "); PRAGMA application_id = 2053928559; PRAGMA user_version = 1")
                .c_str());
    auto store = open();
    ASSERT_TRUE(store) << error;
    store->find(name(1), [](Outcome outcome, const LinkStore::Record& record) {
        EXPECT_EQ(outcome, Outcome::Done);
        EXPECT_EQ(record.registration.availability, LinkStore::Availability::Unavailable);
        EXPECT_EQ(record.lastSign, 1'000'000'000);
    });
    for (const auto& owner : {std::string(), digestOf("")}) {
        std::promise<Outcome> promise;
        store->remove(name(1), owner, [&](Outcome outcome) { promise.set_value(outcome); });
        EXPECT_EQ(promise.get_future().get(), Outcome::Unknown);
    }
    store.reset();
    ASSERT_TRUE(store = open()) << error;
    EXPECT_EQ(find(*store, 1), Outcome::Done);
}

}  // namespace
}  // namespace zelvo::service
