#include "service/LinkStore.h"

#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "service/SharingFields.h"

namespace zelvo::service {
namespace {

/// Marks the file as ours ("zlvo") and says how its table is laid out.
constexpr int ApplicationId = 0x7A6C766F;
constexpr int LayoutVersion = 1;
/// Longer than any change of ours takes, short enough for the client that waits.
constexpr int BusyMilliseconds = 500;

constexpr int FactCount = FactNames.size();

/// The fact names joined with commas, each followed by the given text.
std::string factList(const std::string& after) {
    std::string list;
    for (auto name : FactNames)
        list += (list.empty() ? "" : ", ") + std::string(name) + after;
    return list;
}

void bindAll(SqliteStatement& statement, const std::string& link,
             const LinkStore::Registration& registration) {
    statement.bind(1, link);
    statement.bind(2, std::int64_t{static_cast<int>(registration.availability)});
    int parameter = 3;
    for (auto name : FactNames)
        statement.bind(parameter++, registration.facts.find(name)->second);
}

class Reset {
  public:
    explicit Reset(SqliteStatement& statement) : statement_(statement) {}
    Reset(const Reset&) = delete;
    Reset& operator=(const Reset&) = delete;
    ~Reset() { statement_.reset(); }

  private:
    SqliteStatement& statement_;
};

}  // namespace

std::unique_ptr<LinkStore> LinkStore::open(const std::string& file, std::string& error) {
    std::unique_ptr<LinkStore> store(new LinkStore);
    if (store->openFile(file) && store->prepareTable() && store->makeDurable() &&
        store->prepareStatements())
        return store;
    error = store->trouble_.empty() ? sqlite3_errmsg(store->database_.get()) : store->trouble_;
    return nullptr;
}

LinkStore::Outcome LinkStore::insert(const std::string& link, const Registration& registration) {
    std::lock_guard lock(mutex_);
    Reset reset(insert_);
    bindAll(insert_, link, registration);
    return change(insert_);
}

LinkStore::Outcome LinkStore::replace(const std::string& link, const Registration& registration) {
    std::lock_guard lock(mutex_);
    Reset reset(replace_);
    bindAll(replace_, link, registration);
    return change(replace_);
}

LinkStore::Outcome LinkStore::remove(const std::string& link) {
    std::lock_guard lock(mutex_);
    Reset reset(remove_);
    remove_.bind(1, link);
    return change(remove_);
}

LinkStore::Outcome LinkStore::find(const std::string& link, Registration& registration) {
    std::lock_guard lock(mutex_);
    Reset reset(find_);
    find_.bind(1, link);
    switch (find_.step()) {
        case SqliteStatement::Step::Done:
            return Outcome::Unknown;
        case SqliteStatement::Step::Failed:
            return failed();
        case SqliteStatement::Step::Row:
            break;
    }
    registration.availability =
        find_.integer(0) == 0 ? Availability::Available : Availability::Unavailable;
    for (int i = 0; i < FactCount; ++i)
        registration.facts.insert_or_assign(std::string(FactNames[i]), find_.text(i + 1));
    return Outcome::Done;
}

bool LinkStore::openFile(const std::string& file) {
    // Made absolute, since SQLite gives names like ":memory:" a meaning of their own.
    std::error_code ignored;
    auto path = std::filesystem::absolute(file, ignored).string();
    sqlite3* database = nullptr;
    int code =
        sqlite3_open_v2(path.c_str(), &database,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(database);
    if (code != SQLITE_OK)
        return false;
    sqlite3_busy_timeout(database, BusyMilliseconds);
    auto condition = value("PRAGMA quick_check(1)");
    if (condition && *condition != "ok")
        trouble_ = "damaged: " + *condition;
    return condition && trouble_.empty();
}

bool LinkStore::execute(const std::string& sql) {
    return sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::optional<std::string> LinkStore::value(const std::string& sql) {
    SqliteStatement statement(database_.get(), sql);
    if (!statement.isValid() || statement.step() != SqliteStatement::Step::Row)
        return std::nullopt;
    return statement.text(0);
}

bool LinkStore::prepareTable() {
    // One writer at a time, so that two services starting on a new file do not both fill it.
    if (!execute("BEGIN IMMEDIATE"))
        return false;
    auto owner = value("PRAGMA application_id");
    auto layout = value("PRAGMA user_version");
    auto tables = value("SELECT count(*) FROM sqlite_schema");
    if (!owner || !layout || !tables)
        return false;
    if (*tables == "0" && *owner == "0")
        return makeTable() && execute("COMMIT");
    if (*owner != std::to_string(ApplicationId))
        trouble_ = "not a database of this service";
    else if (*layout != std::to_string(LayoutVersion))
        trouble_ = "written by another version of this service";
    return trouble_.empty() && execute("COMMIT");
}

bool LinkStore::makeTable() {
    return execute(
               "CREATE TABLE links (link TEXT PRIMARY KEY NOT NULL, "
               "availabilityStatus INTEGER NOT NULL, " +
               factList(" TEXT NOT NULL") + ") WITHOUT ROWID") &&
           execute("PRAGMA application_id = " + std::to_string(ApplicationId)) &&
           execute("PRAGMA user_version = " + std::to_string(LayoutVersion));
}

bool LinkStore::makeDurable() {
    // With a write-ahead log, only FULL brings every commit to the disk before it returns.
    return value("PRAGMA journal_mode = WAL") && execute("PRAGMA synchronous = FULL");
}

bool LinkStore::prepareStatements() {
    auto* database = database_.get();
    std::string marks;
    std::string assignments;
    for (int i = 0; i < FactCount; ++i) {
        auto number = std::to_string(i + 3);
        marks.append(", ?").append(number);
        assignments.append(", ").append(FactNames[i]).append(" = ?").append(number);
    }
    insert_ = {database, "INSERT INTO links (link, availabilityStatus, " + factList("") +
                             ") VALUES (?1, ?2" + marks + ")"};
    replace_ = {database,
                "UPDATE links SET availabilityStatus = ?2" + assignments + " WHERE link = ?1"};
    remove_ = {database, "DELETE FROM links WHERE link = ?1"};
    find_ = {database,
             "SELECT availabilityStatus, " + factList("") + " FROM links WHERE link = ?1"};
    return insert_.isValid() && replace_.isValid() && remove_.isValid() && find_.isValid();
}

LinkStore::Outcome LinkStore::change(SqliteStatement& statement) {
    if (statement.step() != SqliteStatement::Step::Done)
        return failed();
    return sqlite3_changes(database_.get()) > 0 ? Outcome::Done : Outcome::Unknown;
}

LinkStore::Outcome LinkStore::failed() const {
    std::fprintf(stderr, "zelvo-service: database: %s\n", sqlite3_errmsg(database_.get()));
    return Outcome::Failed;
}

void LinkStore::Closer::operator()(sqlite3* database) const {
    sqlite3_close_v2(database);
}

}  // namespace zelvo::service
