#pragma once

#include <memory>
#include <optional>
#include <pqxx/pqxx>
#include <string>
#include <vector>

#include "service/LinkStore.h"

namespace zelvo::service {

/// One connection to the links in PostgreSQL, with its statements. Each change looks at the owner
/// and changes the row in one statement, so that services which share the database never come
/// between the two. Used by one thread at a time.
class PostgresTable {
  public:
    using Outcome = LinkStore::Outcome;
    /// How a transaction came to its end.
    enum class End {
        Done,
        Failed,   ///< nothing has changed
        InDoubt,  ///< the connection was lost before the server's word
    };

    /// Null, with the reason in error, when the database cannot be used.
    static std::unique_ptr<PostgresTable> open(const std::string& place, std::string& error);

    /// By which a transaction is known afterwards. The number of PostgreSQL's own would not do: it
    /// may be given out again after a crash.
    struct Mark {
        std::string line;  ///< of random bytes, one for each sequence of transactions
        std::int64_t number = 0;
    };

    bool begin();
    /// Leaves the mark where something has changed, in the same transaction.
    End commit(const Mark& mark);
    void rollBack();
    /// Whether another connection's transaction has been made, the last one of its line. Waits for
    /// one that has not ended, about a second; nothing when that or the server fails.
    std::optional<bool> isMade(const Mark& mark);

    /// Inside a transaction; Failed ends it. Links as the bytes of their names.
    Outcome create(const LinkStore::Creation& creation, Moment now, LinkStore::Created& made);
    Outcome replace(const std::string& link, const LinkStore::Owner& owner,
                    const LinkStore::Registration& registration, Moment now);
    Outcome remove(const std::string& link, const LinkStore::Owner& owner, Moment now);
    Outcome touch(const std::string& link, Moment now);
    /// Forgets what is too old among the rows that follow `after`, a few at a time, and sets it to
    /// where the next time begins; and marks that nobody asks for any more.
    Outcome forgetSome(std::int64_t& after, Moment now);
    /// Writes what is there anyway, to see whether that works.
    Outcome probe();

    struct Found {
        std::string link;
        LinkStore::Record record;
    };
    /// Those of the links that are known, in any order; nothing when it failed. Outside of a
    /// transaction.
    std::optional<std::vector<Found>> find(const std::vector<std::string>& links, Moment now);

    /// False once the connection is lost, or has turned out to lead to a server that only reads.
    bool isUsable() const;
    /// Why something failed last.
    const std::string& trouble() const { return trouble_; }

  private:
    explicit PostgresTable(std::unique_ptr<pqxx::connection> connection);
    void prepareStatements();
    template <typename Work>
    bool attempt(Work&& work);
    Outcome change(const std::function<pqxx::result()>& statement);

    std::unique_ptr<pqxx::connection> connection_;
    std::optional<pqxx::work> work_;
    std::string trouble_;
    bool canWrite_ = true;
};

}  // namespace zelvo::service
