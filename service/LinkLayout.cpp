// How the file of links is laid out, and how it comes to be so.

#include <sqlite3.h>

#include "service/LinkTable.h"
#include "service/Names.h"
#include "service/SharingFields.h"

namespace zelvo::service {
namespace {

/// Marks the file as ours ("zlvo").
constexpr int ApplicationId = 0x7A6C766F;
/// 1 had a table by the link's text, without owners.
constexpr int LayoutVersion = 2;

}  // namespace

bool LinkTable::prepareLayout(Moment now) {
    // One writer at a time, so that two services starting on a new file do not both fill it.
    if (!execute("BEGIN IMMEDIATE"))
        return false;
    auto mark = value("PRAGMA application_id");
    auto layout = value("PRAGMA user_version");
    auto tables = value("SELECT count(*) FROM sqlite_schema");
    if (!mark || !layout || !tables)
        return false;
    bool isReady = true;
    if (*tables == "0" && *mark == "0")
        isReady = makeLayout();
    else if (*mark != std::to_string(ApplicationId))
        trouble_ = "not a database of this service";
    else if (*layout == "1")
        isReady = migrate(now);
    else if (*layout != std::to_string(LayoutVersion))
        trouble_ = "written by another version of this service";
    // With a write-ahead log, only FULL brings every commit to the disk before it returns.
    return isReady && trouble_.empty() && execute("COMMIT") && value("PRAGMA journal_mode = WAL") &&
           execute("PRAGMA synchronous = FULL") &&
           // A log that has been long keeps its room on the disk otherwise.
           execute("PRAGMA journal_size_limit = 67108864");
}

bool LinkTable::hasLayout() {
    const auto mark = value("PRAGMA application_id");
    const auto layout = value("PRAGMA user_version");
    if (!mark || !layout)
        return false;
    if (*mark != std::to_string(ApplicationId))
        trouble_ = "not a database of this service";
    else if (*layout == "1")
        trouble_ =
            "written by an older version of this service, and brought up to date when "
            "zelvo-service starts with it";
    else if (*layout != std::to_string(LayoutVersion))
        trouble_ = "written by another version of this service";
    // What a file does not keep.
    return trouble_.empty() && execute("PRAGMA synchronous = FULL");
}

bool LinkTable::makeLayout() {
    std::string facts;
    for (auto name : FactNames)
        facts.append(", ").append(name).append(" TEXT NOT NULL");
    // In the order of their making, which fills pages; what lies before the facts is read without
    // the pages that a long row goes on to.
    return execute(
               "CREATE TABLE links (id INTEGER PRIMARY KEY, link BLOB NOT NULL, "
               "owner BLOB, availabilityStatus INTEGER NOT NULL, proven INTEGER NOT NULL, "
               "lastSign INTEGER NOT NULL" +
               facts + ")") &&
           execute("CREATE UNIQUE INDEX linksByName ON links (link)") &&
           execute("CREATE INDEX linksByOwner ON links (owner) WHERE owner IS NOT NULL") &&
           execute("PRAGMA application_id = " + std::to_string(ApplicationId)) &&
           execute("PRAGMA user_version = " + std::to_string(LayoutVersion));
}

/// Nobody has proven to be the owner of a link from before, so it is unavailable for good, and as
/// an unavailable link tells no facts, none are kept. An owner that is NULL equals none, the empty
/// one of who shows no secret included.
bool LinkTable::migrate(Moment now) {
    if (!execute("ALTER TABLE links RENAME TO linksBefore") || !makeLayout())
        return false;
    std::string noFacts;
    for (std::size_t i = 0; i < FactNames.size(); ++i)
        noFacts += ", ''";
    SqliteStatement before(database_.get(), "SELECT link FROM linksBefore");
    SqliteStatement insert(database_.get(),
                           "INSERT INTO links VALUES (NULL, ?1, NULL, 1, 0, ?2" + noFacts + ")");
    if (!before.isValid() || !insert.isValid())
        return false;
    auto step = before.step();
    for (; step == SqliteStatement::Step::Row; step = before.step()) {
        const auto link = bytesOfName(before.text(0));
        if (!link)
            continue;
        insert.bindBytes(1, *link);
        insert.bind(2, now);
        if (insert.step() != SqliteStatement::Step::Done)
            return false;
        insert.reset();
    }
    before.reset();
    return step == SqliteStatement::Step::Done && execute("DROP TABLE linksBefore");
}

}  // namespace zelvo::service
