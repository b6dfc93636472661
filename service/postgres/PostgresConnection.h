#pragma once

#include <memory>
#include <pqxx/pqxx>
#include <string>

namespace zelvo::service {

/// What a connection to PostgreSQL is for.
enum class PostgresUse {
    Serve,   ///< makes the layout; a statement that takes longer than its client waits is given up
    Fill,    ///< makes the layout; as the two below it has longer
    Change,  ///< only where the layout is
    Look,    ///< the same, and nothing can be changed
};

/// Connects. Null, with the reason in error, when the database cannot be used; that takes some
/// seconds where nothing answers. Any thread.
std::unique_ptr<pqxx::connection> connectToPostgres(const std::string& place, PostgresUse use,
                                                    std::string& error);

/// The facts' columns, each with a comma before it.
std::string postgresFacts();

/// The sentence of an error, without what the server adds about single rows.
std::string firstLineOf(const std::exception& error);

}  // namespace zelvo::service
