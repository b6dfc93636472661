#include "service/SqliteArchive.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "service/LinkTable.h"
#include "service/SharingFields.h"
#include "service/SqliteStatement.h"

namespace zelvo::service {
namespace {

using Step = SqliteStatement::Step;

/// Of which each part is a change by itself, so that a service's own get between.
constexpr std::int64_t ArchivedAtOnce = 1000;
constexpr std::chrono::milliseconds BetweenParts{5};
constexpr int PatientMilliseconds = 10'000;

/// Before the facts.
constexpr const char* Columns = "link, owner, availabilityStatus, proven, lastSign";
constexpr int ColumnsBefore = 5;

std::string columnsWithFacts() {
    std::string names = Columns;
    for (auto name : FactNames)
        names.append(", ").append(name);
    return names;
}

LinkArchive::Row rowOf(const SqliteStatement& statement) {
    LinkArchive::Row row;
    auto& [link, record] = row;
    link = statement.text(0);
    record.owner = statement.text(1);
    record.registration.availability = statement.integer(2) == 0
                                           ? LinkStore::Availability::Available
                                           : LinkStore::Availability::Unavailable;
    record.registration.addressIsProven = statement.integer(3) != 0;
    record.lastSign = statement.integer(4);
    int column = ColumnsBefore;
    for (auto name : FactNames)
        record.registration.facts.emplace(name, statement.text(column++));
    return row;
}

}  // namespace

std::unique_ptr<SqliteArchive> SqliteArchive::open(const std::string& file, Use use, Moment now,
                                                   std::string& error) {
    auto table = LinkTable::open(file,
                                 use == Use::Look     ? LinkTable::Use::Look
                                 : use == Use::Change ? LinkTable::Use::Change
                                                      : LinkTable::Use::Write,
                                 now, error);
    return table ? std::unique_ptr<SqliteArchive>(new SqliteArchive(std::move(table))) : nullptr;
}

SqliteArchive::SqliteArchive(std::unique_ptr<LinkTable> table) : table_(std::move(table)) {}
SqliteArchive::~SqliteArchive() = default;

bool SqliteArchive::read(Others others, const std::function<bool(const Row&)>& row) {
    if (others == Others::MayChange)
        return readInParts(row);
    const auto before = version();
    if (!execute("BEGIN"))
        return false;
    SqliteStatement rows(table_->database(),
                         "SELECT " + columnsWithFacts() + " FROM links ORDER BY id");
    auto step = rows.isValid() ? rows.step() : Step::Failed;
    while (step == Step::Row && row(rowOf(rows)))
        step = rows.step();
    const bool isRead = step != Step::Failed || fail();
    rows.reset();
    table_->rollBack();
    // Who only looks cannot keep others from writing.
    if (isRead && version() != before) {
        trouble_ = "changed while it was read; end the services that use it";
        return false;
    }
    return isRead;
}

/// While something is being read, the log cannot be begun anew and grows; and whoever takes the
/// rows may be a person who reads them.
bool SqliteArchive::readInParts(const std::function<bool(const Row&)>& row) {
    SqliteStatement rows(table_->database(),
                         "SELECT " + columnsWithFacts() +
                             ", id FROM links WHERE id > ?1 ORDER BY id LIMIT " +
                             std::to_string(ArchivedAtOnce));
    if (!rows.isValid())
        return fail();
    std::vector<Row> part;
    for (std::int64_t after = 0;; part.clear()) {
        rows.bind(1, after);
        auto step = rows.step();
        for (; step == Step::Row; step = rows.step()) {
            part.push_back(rowOf(rows));
            after = rows.integer(ColumnsBefore + static_cast<int>(FactNames.size()));
        }
        if (step == Step::Failed)
            return fail();
        rows.reset();
        if (part.empty() || !std::ranges::all_of(part, row))
            return true;
    }
}

std::int64_t SqliteArchive::version() {
    SqliteStatement version(table_->database(), "PRAGMA data_version");
    return version.isValid() && version.step() == Step::Row ? version.integer(0) : -1;
}

std::optional<std::int64_t> SqliteArchive::count() {
    SqliteStatement count(table_->database(), "SELECT count(*) FROM links");
    if (count.isValid() && count.step() == Step::Row)
        return count.integer(0);
    fail();
    return std::nullopt;
}

bool SqliteArchive::beginAdding() {
    std::string marks = "?1, ?2, ?3, ?4, ?5";
    for (std::size_t i = 0; i < FactNames.size(); ++i)
        marks += ", ?" + std::to_string(6 + i);
    if (!execute("BEGIN IMMEDIATE"))
        return false;
    insert_ = std::make_unique<SqliteStatement>(
        table_->database(),
        "INSERT OR IGNORE INTO links (" + columnsWithFacts() + ") VALUES (" + marks + ")");
    return insert_->isValid() || fail();
}

bool SqliteArchive::add(const Row& row) {
    const auto& [registration, owner, lastSign] = row.record;
    insert_->bindBytes(1, row.link);
    // What is not bound is NULL, which is nobody.
    if (!owner.empty())
        insert_->bindBytes(2, owner);
    insert_->bind(3, std::int64_t{static_cast<int>(registration.availability)});
    insert_->bind(4, std::int64_t{registration.addressIsProven});
    insert_->bind(5, lastSign);
    int parameter = 6;
    for (auto name : FactNames)
        insert_->bind(parameter++, registration.facts.find(name)->second);
    const bool isDone = insert_->step() == Step::Done || fail();
    insert_->reset();
    return isDone;
}

bool SqliteArchive::endAdding() {
    insert_.reset();
    return execute("COMMIT");
}

LinkStore::Outcome SqliteArchive::end(const std::string& link) {
    SqliteStatement remove(table_->database(), "DELETE FROM links WHERE link = ?1");
    remove.bindBytes(1, link);
    if (remove.step() != Step::Done) {
        fail();
        return LinkStore::Outcome::Failed;
    }
    return sqlite3_changes(table_->database()) > 0 ? LinkStore::Outcome::Done
                                                   : LinkStore::Outcome::Unknown;
}

std::optional<std::int64_t> SqliteArchive::purge(Moment lastSign) {
    SqliteStatement last(table_->database(), "SELECT coalesce(max(id), 0) FROM links");
    SqliteStatement remove(table_->database(),
                           "DELETE FROM links WHERE id > ?1 AND id <= ?2 AND lastSign <= ?3");
    sqlite3_busy_timeout(table_->database(), PatientMilliseconds);
    bool isDone = last.isValid() && remove.isValid() && last.step() == Step::Row;
    const auto end = isDone ? last.integer(0) : 0;
    last.reset();
    std::int64_t count = 0;
    for (std::int64_t from = 0; isDone && from < end; from += ArchivedAtOnce) {
        remove.bind(1, from);
        remove.bind(2, from + ArchivedAtOnce);
        remove.bind(3, lastSign);
        isDone = remove.step() == Step::Done;
        count += isDone ? sqlite3_changes64(table_->database()) : 0;
        remove.reset();
        // Who waits for the database asks again after a while only, and would find it taken again.
        std::this_thread::sleep_for(BetweenParts);
    }
    if (isDone)
        return count;
    fail();
    return std::nullopt;
}

bool SqliteArchive::execute(const char* sql) {
    return sqlite3_exec(table_->database(), sql, nullptr, nullptr, nullptr) == SQLITE_OK || fail();
}

bool SqliteArchive::fail() {
    trouble_ = sqlite3_errmsg(table_->database());
    return false;
}

}  // namespace zelvo::service
