#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>

#include "service/SqliteLinkStore.h"
#include "tests/service/PostgresServer.h"
#include "tests/support/TemporaryFolder.h"
#ifdef ZELVO_POSTGRES
#include "service/postgres/PostgresLinkStore.h"
#endif

namespace zelvo::service {

/// An empty database of either kind, and somebody else's hands on it.
class Database {
  public:
    explicit Database(const std::string& kind) : isServer_(kind == "postgresql") {
        if (isServer_ && server().isRunning())
            server().empty();
    }
    /// Null where the kind is not installed. Changes go one after the other.
    std::unique_ptr<LinkStore> open(const std::function<Moment()>& clock) const {
        std::string error;
        if (!isServer_)
            return SqliteLinkStore::open(file_, clock, error);
#ifdef ZELVO_POSTGRES
        if (server().isRunning())
            return PostgresLinkStore::open(server().place(), 2, clock, error);
#endif
        return nullptr;
    }
    std::string place() const {
        return isServer_ ? server().place() : file_;
    }

    void run(const std::string& sql) const {
        if (isServer_)
            return server().run(sql);
        sqlite3* database = nullptr;
        sqlite3_open(file_.c_str(), &database);
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
        sqlite3_close(database);
    }
    /// Of the server alone.
    std::string ask(const std::string& sql) const {
        return server().ask(sql);
    }
    void forbidUpdates() const {
        run(isServer_ ? "ALTER TABLE links ADD CONSTRAINT t CHECK (false) NOT VALID"
                      : "CREATE TRIGGER t BEFORE UPDATE ON links "
                        "BEGIN SELECT RAISE(ABORT, 'no'); END");
    }
    void allowUpdates() const {
        run(isServer_ ? "ALTER TABLE links DROP CONSTRAINT t" : "DROP TRIGGER t");
    }
    /// What has been written lately, as far as it is to be read.
    std::string content() const {
        return isServer_ ? ask("SELECT coalesce(string_agg(links::text, ' '), '') FROM links")
                         : folder_.read("links.db-wal");
    }

  private:
    static test::PostgresServer& server() {
        return test::PostgresServer::instance();
    }

    test::TemporaryFolder folder_;
    const std::string file_ = folder_ / "links.db";
    const bool isServer_;
};

}  // namespace zelvo::service
