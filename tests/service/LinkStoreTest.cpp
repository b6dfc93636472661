#include "service/LinkStore.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>

#include "Workshop.h"
#include "service/SharingFields.h"

namespace zelvo::service {
namespace {

using Outcome = LinkStore::Outcome;

/// Somebody else's hands on the database.
class Intruder {
  public:
    explicit Intruder(const std::string& file) { sqlite3_open(file.c_str(), &database_); }
    ~Intruder() { sqlite3_close(database_); }
    void run(const char* sql) {
        EXPECT_EQ(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    }

  private:
    sqlite3* database_ = nullptr;
};

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

    Workshop workshop;
    std::string file = workshop.path("links.db");
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
    Intruder(file).run("PRAGMA user_version = 9");
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "written by another version of this service");
    Intruder(file).run("PRAGMA user_version = 1");
    ASSERT_TRUE(open());

    std::fstream(file, std::ios::in | std::ios::out).seekp(4096) << std::string(4096, '?');
    EXPECT_FALSE(open());
    EXPECT_NE(error, "");
    std::ofstream(file) << std::string(5000, '?');
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "file is not a database");

    std::filesystem::remove(file);
    Intruder(file).run("CREATE TABLE letters (text)");
    auto before = std::filesystem::file_size(file);
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "not a database of this service");
    EXPECT_EQ(std::filesystem::file_size(file), before);
}

TEST_F(LinkStoreTest, ALockedDatabaseFailsAndRecovers) {
    auto store = open();
    ASSERT_EQ(store->insert("a", registration), Outcome::Done);
    Intruder intruder(file);
    intruder.run("BEGIN IMMEDIATE");
    EXPECT_EQ(store->insert("b", registration), Outcome::Failed);
    EXPECT_FALSE(open());
    EXPECT_EQ(error, "database is locked");
    intruder.run("ROLLBACK");
    EXPECT_EQ(store->find("b", registration), Outcome::Unknown);
    EXPECT_EQ(store->insert("b", registration), Outcome::Done);
    EXPECT_EQ(store->insert("b", registration), Outcome::Failed);
}

}  // namespace
}  // namespace zelvo::service
