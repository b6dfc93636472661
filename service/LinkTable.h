#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "service/LinkStore.h"
#include "service/SqliteStatement.h"

namespace zelvo::service {

/// One connection to the SQLite file of links, with its statements. Used by one thread at a time.
class LinkTable {
  public:
    using Outcome = LinkStore::Outcome;
    enum class Use {
        Look,    ///< nothing can be changed; only where the layout is
        Change,  ///< the same, for changes
        Read,    ///< beside one that prepares the file
        Write,   ///< prepares the file: makes it, or brings an older layout up to date
    };

    /// Null, with the reason in error, when the database cannot be used.
    static std::unique_ptr<LinkTable> open(const std::string& file, Use use, Moment now,
                                           std::string& error);

    bool begin() { return execute("BEGIN IMMEDIATE"); }
    bool commit() { return execute("COMMIT"); }
    /// Writes what is there anyway, to see whether that works.
    Outcome probe();
    void rollBack();
    /// False once the database has given up the transaction by itself.
    bool isInTransaction() const;

    /// Links as the bytes of their names.
    Outcome insert(const std::string& link, const LinkStore::Owner& owner,
                   const LinkStore::Registration& registration, Moment now);
    /// Of the owner's own link.
    Outcome replace(const std::string& link, const LinkStore::Owner& owner,
                    const LinkStore::Registration& registration, Moment now);
    Outcome remove(const std::string& link, const LinkStore::Owner& owner, Moment now);
    Outcome find(const std::string& link, Moment now, LinkStore::Record& record);
    Outcome owns(const LinkStore::Owner& owner, Moment now);
    Outcome touch(const std::string& link, Moment now);
    /// Forgets what is too old among the rows that follow `after`, a few at a time: the row up to
    /// which it has come, 0 at the end, -1 where the database failed.
    std::int64_t forgetSome(std::int64_t after, Moment now);

    /// Brings changes from the log into the table. How many pages the log has had, and how many of
    /// them are left; false when it failed.
    bool checkpoint(int& pages, int& left);

    sqlite3* database() const { return database_.get(); }
    /// Why something failed last.
    const std::string& trouble() const { return trouble_; }

  private:
    struct Closer {
        void operator()(sqlite3* database) const;
    };

    LinkTable() = default;
    bool openFile(const std::string& file, Use use);
    bool execute(const std::string& sql);
    std::optional<std::string> value(const std::string& sql);
    bool prepareLayout(Moment now);
    bool hasLayout();
    bool makeLayout();
    bool migrate(Moment now);
    bool prepareStatements();
    Outcome change(SqliteStatement& statement);
    Outcome failed();

    std::unique_ptr<sqlite3, Closer> database_;
    std::string trouble_;
    SqliteStatement insert_;
    SqliteStatement replace_;
    SqliteStatement remove_;
    SqliteStatement find_;
    SqliteStatement owns_;
    SqliteStatement touch_;
    SqliteStatement forget_;
    SqliteStatement last_;
};

}  // namespace zelvo::service
