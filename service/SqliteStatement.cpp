#include "service/SqliteStatement.h"

#include <sqlite3.h>

namespace zelvo::service {

SqliteStatement::SqliteStatement(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v3(database, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    statement_.reset(statement);
}

void SqliteStatement::bind(int parameter, std::string_view text) {
    // A null pointer would bind NULL.
    const char* data = text.data() ? text.data() : "";
    sqlite3_bind_text64(statement_.get(), parameter, data, text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void SqliteStatement::bindBytes(int parameter, std::string_view bytes) {
    const char* data = bytes.data() ? bytes.data() : "";
    sqlite3_bind_blob64(statement_.get(), parameter, data, bytes.size(), SQLITE_STATIC);
}

void SqliteStatement::bind(int parameter, std::int64_t number) {
    sqlite3_bind_int64(statement_.get(), parameter, number);
}

SqliteStatement::Step SqliteStatement::step() {
    switch (sqlite3_step(statement_.get())) {
        case SQLITE_ROW:
            return Step::Row;
        case SQLITE_DONE:
            return Step::Done;
        default:
            return Step::Failed;
    }
}

void SqliteStatement::reset() {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
}

std::string SqliteStatement::text(int column) const {
    const auto* data = sqlite3_column_blob(statement_.get(), column);
    auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return data ? std::string(static_cast<const char*>(data), size) : std::string();
}

std::int64_t SqliteStatement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

void SqliteStatement::Finalizer::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

}  // namespace zelvo::service
