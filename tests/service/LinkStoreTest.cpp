#include "service/LinkStore.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

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
    std::unique_ptr<LinkStore> open() {
        error.clear();
        return LinkStore::open(file, error);
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
    {
        auto store = open();
        for (int i = 0; i < 500; ++i)
            ASSERT_EQ(store->insert("link" + std::to_string(i), registration), Outcome::Done);
    }
    ASSERT_TRUE(open());
    intrude("PRAGMA user_version = 9");
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "written by another version of this service");
    intrude("PRAGMA user_version = 1");
    ASSERT_TRUE(open());

    std::fstream(file, std::ios::in | std::ios::out).seekp(4096) << std::string(4096, '?');
    EXPECT_FALSE(open());
    EXPECT_NE(error, "");
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

TEST_F(LinkStoreTest, ALockedDatabaseFailsAndRecovers) {
    auto store = open();
    ASSERT_EQ(store->insert("a", registration), Outcome::Done);
    auto intruder = intrude("BEGIN IMMEDIATE");
    EXPECT_EQ(store->insert("b", registration), Outcome::Failed);
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "database is locked");
    intruder.reset();
    EXPECT_EQ(store->find("b", registration), Outcome::Unknown);
    EXPECT_EQ(store->insert("b", registration), Outcome::Done);
    EXPECT_EQ(store->insert("b", registration), Outcome::Failed);
}

}  // namespace
}  // namespace zelvo::service
