#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace zelvo::service {

/// One prepared statement, used again and again. Not thread-safe.
class SqliteStatement {
  public:
    SqliteStatement() = default;
    /// Prepares the statement; isValid() tells whether that worked.
    SqliteStatement(sqlite3* database, const std::string& sql);

    /// Values of the parameters, numbered from 1. Text and bytes must stay as they are until
    /// reset().
    void bind(int parameter, std::string_view text);
    void bindBytes(int parameter, std::string_view bytes);
    void bind(int parameter, std::int64_t number);

    enum class Step { Row, Done, Failed };
    Step step();
    /// Ends the run: releases its locks and forgets its values.
    void reset();

    bool isValid() const { return statement_ != nullptr; }
    /// Columns of the current row, numbered from 0.
    std::string text(int column) const;
    std::int64_t integer(int column) const;

  private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

}  // namespace zelvo::service
