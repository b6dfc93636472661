#include "service/LinkTable.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "service/SharingFields.h"

namespace zelvo::service {
namespace {

using Step = SqliteStatement::Step;

/// Longer than any change of ours takes, short enough for the client that waits.
constexpr int BusyMilliseconds = 500;
constexpr std::int64_t RowsAtOnce = 1000;

/// Columns of the statements that follow here, numbered from 1 and before the facts.
enum Parameter : int { Link = 1, OwnersDigest, Status, Proven, Sign, FirstFact };

void bindAll(SqliteStatement& statement, const std::string& link, const LinkStore::Owner& owner,
             const LinkStore::Registration& registration, Moment now) {
    statement.bindBytes(Link, link);
    statement.bindBytes(OwnersDigest, owner);
    statement.bind(Status, std::int64_t{static_cast<int>(registration.availability)});
    statement.bind(Proven, std::int64_t{registration.addressIsProven});
    statement.bind(Sign, now);
    int parameter = FirstFact;
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

std::unique_ptr<LinkTable> LinkTable::open(const std::string& file, Use use, Moment now,
                                           std::string& error) {
    std::unique_ptr<LinkTable> table(new LinkTable);
    bool isReady = table->openFile(file, use);
    if (use == Use::Write)
        isReady = isReady && table->prepareLayout(now);
    else if (use != Use::Read)
        isReady = isReady && table->hasLayout();
    if (isReady && table->prepareStatements())
        return table;
    error = table->trouble_.empty() ? sqlite3_errmsg(table->database_.get()) : table->trouble_;
    return nullptr;
}

LinkTable::Outcome LinkTable::insert(const std::string& link, const LinkStore::Owner& owner,
                                     const LinkStore::Registration& registration, Moment now) {
    Reset reset(insert_);
    bindAll(insert_, link, owner, registration, now);
    return change(insert_);
}

LinkTable::Outcome LinkTable::replace(const std::string& link, const LinkStore::Owner& owner,
                                      const LinkStore::Registration& registration, Moment now) {
    Reset reset(replace_);
    bindAll(replace_, link, owner, registration, now);
    replace_.bind(FirstFact + static_cast<int>(FactNames.size()), now - life::KnownFor);
    return change(replace_);
}

LinkTable::Outcome LinkTable::remove(const std::string& link, const LinkStore::Owner& owner,
                                     Moment now) {
    Reset reset(remove_);
    remove_.bindBytes(1, link);
    remove_.bindBytes(2, owner);
    remove_.bind(3, now - life::KnownFor);
    return change(remove_);
}

LinkTable::Outcome LinkTable::find(const std::string& link, Moment now, LinkStore::Record& record) {
    Reset reset(find_);
    find_.bindBytes(1, link);
    find_.bind(2, now - life::KnownFor);
    switch (find_.step()) {
        case Step::Done:
            return Outcome::Unknown;
        case Step::Failed:
            return failed();
        case Step::Row:
            break;
    }
    record.owner = find_.text(0);
    record.registration.availability = find_.integer(1) == 0 ? LinkStore::Availability::Available
                                                             : LinkStore::Availability::Unavailable;
    record.registration.addressIsProven = find_.integer(2) != 0;
    record.lastSign = find_.integer(3);
    int column = 4;
    for (auto name : FactNames)
        record.registration.facts.insert_or_assign(std::string(name), find_.text(column++));
    return Outcome::Done;
}

LinkTable::Outcome LinkTable::owns(const LinkStore::Owner& owner, Moment now) {
    Reset reset(owns_);
    owns_.bindBytes(1, owner);
    owns_.bind(2, now - life::KnownFor);
    switch (owns_.step()) {
        case Step::Row:
            return Outcome::Done;
        case Step::Done:
            return Outcome::Unknown;
        case Step::Failed:
            break;
    }
    return failed();
}

LinkTable::Outcome LinkTable::touch(const std::string& link, Moment now) {
    Reset reset(touch_);
    touch_.bindBytes(1, link);
    touch_.bind(2, now);
    return change(touch_);
}

std::int64_t LinkTable::forgetSome(std::int64_t after, Moment now) {
    Reset reset(forget_);
    forget_.bind(1, after);
    forget_.bind(2, after + RowsAtOnce);
    forget_.bind(3, now - life::KnownFor);
    if (change(forget_) == Outcome::Failed)
        return -1;
    Reset resetLast(last_);
    if (last_.step() != Step::Row)
        return -1;
    return after + RowsAtOnce < last_.integer(0) ? after + RowsAtOnce : 0;
}

LinkTable::Outcome LinkTable::probe() {
    const auto layout = value("PRAGMA user_version");
    return layout && execute("PRAGMA user_version = " + *layout) ? Outcome::Done : failed();
}

bool LinkTable::checkpoint(int& pages, int& left) {
    int done = 0;
    int code = sqlite3_wal_checkpoint_v2(database_.get(), nullptr, SQLITE_CHECKPOINT_PASSIVE,
                                         &pages, &done);
    left = pages - done;
    return code == SQLITE_OK;
}

void LinkTable::rollBack() {
    if (isInTransaction())
        execute("ROLLBACK");
}

bool LinkTable::isInTransaction() const {
    return sqlite3_get_autocommit(database_.get()) == 0;
}

bool LinkTable::openFile(const std::string& file, Use use) {
    // Made absolute, since SQLite gives names like ":memory:" a meaning of their own.
    std::error_code ignored;
    auto path = std::filesystem::absolute(file, ignored).string();
    sqlite3* database = nullptr;
    int flags = SQLITE_OPEN_NOMUTEX;
    flags |= use == Use::Look ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    if (use == Use::Write)
        flags |= SQLITE_OPEN_CREATE;
    int code = sqlite3_open_v2(path.c_str(), &database, flags, nullptr);
    database_.reset(database);
    if (code != SQLITE_OK)
        return false;
    // What may not be written is opened all the same, and stays so when it may be again.
    if ((use == Use::Write || use == Use::Change) && sqlite3_db_readonly(database, "main") != 0) {
        trouble_ = "cannot be written";
        return false;
    }
    sqlite3_busy_timeout(database, BusyMilliseconds);
    return execute(use == Use::Write ? "PRAGMA cache_size = -65536" : "PRAGMA cache_size = -16384");
}

bool LinkTable::execute(const std::string& sql) {
    if (sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK)
        return true;
    failed();
    return false;
}

std::optional<std::string> LinkTable::value(const std::string& sql) {
    SqliteStatement statement(database_.get(), sql);
    if (!statement.isValid() || statement.step() != Step::Row)
        return std::nullopt;
    return statement.text(0);
}

bool LinkTable::prepareStatements() {
    auto* database = database_.get();
    std::string names;
    std::string marks;
    std::string assignments;
    int number = FirstFact;
    for (auto name : FactNames) {
        const auto mark = "?" + std::to_string(number++);
        names.append(", ").append(name);
        marks.append(", ").append(mark);
        assignments.append(", ").append(name).append(" = ").append(mark);
    }
    const auto known = " AND lastSign > ?" + std::to_string(number);
    insert_ = {database, "INSERT INTO links (link, owner, availabilityStatus, proven, lastSign" +
                             names + ") VALUES (?1, ?2, ?3, ?4, ?5" + marks + ")"};
    replace_ = {database, "UPDATE links SET availabilityStatus = ?3, proven = ?4, lastSign = ?5" +
                              assignments + " WHERE link = ?1 AND owner = ?2" + known};
    remove_ = {database, "DELETE FROM links WHERE link = ?1 AND owner = ?2 AND lastSign > ?3"};
    find_ = {database, "SELECT owner, availabilityStatus, proven, lastSign" + names +
                           " FROM links WHERE link = ?1 AND lastSign > ?2"};
    owns_ = {database, "SELECT 1 FROM links WHERE owner = ?1 AND lastSign > ?2 LIMIT 1"};
    touch_ = {database, "UPDATE links SET lastSign = ?2 WHERE link = ?1 AND lastSign < ?2"};
    forget_ = {database, "DELETE FROM links WHERE id > ?1 AND id <= ?2 AND lastSign <= ?3"};
    last_ = {database, "SELECT coalesce(max(id), 0) FROM links"};
    for (auto* statement :
         {&insert_, &replace_, &remove_, &find_, &owns_, &touch_, &forget_, &last_})
        if (!statement->isValid())
            return false;
    return true;
}

LinkTable::Outcome LinkTable::change(SqliteStatement& statement) {
    if (statement.step() != Step::Done)
        return failed();
    return sqlite3_changes(database_.get()) > 0 ? Outcome::Done : Outcome::Unknown;
}

LinkTable::Outcome LinkTable::failed() {
    trouble_ = sqlite3_errmsg(database_.get());
    return Outcome::Failed;
}

void LinkTable::Closer::operator()(sqlite3* database) const {
    sqlite3_close_v2(database);
}

}  // namespace zelvo::service
