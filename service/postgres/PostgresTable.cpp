#include "service/postgres/PostgresTable.h"

#include <algorithm>
#include <utility>

#include "service/Names.h"
#include "service/SharingFields.h"
#include "service/postgres/PostgresConnection.h"

namespace zelvo::service {
namespace {

constexpr std::int64_t IdsAtOnce = 1000;
/// Of a server that is a copy of another.
constexpr const char* ReadOnlyTransaction = "25006";

pqxx::binarystring bytes(const std::string& text) {
    return pqxx::binarystring(text);
}

std::vector<std::string> factsOf(const LinkStore::Registration& registration) {
    std::vector<std::string> facts;
    for (auto name : FactNames)
        facts.push_back(registration.facts.find(name)->second);
    return facts;
}

/// An array of bytes as PostgreSQL reads it; of hexadecimal digits, which need no escaping.
std::string arrayOf(const std::vector<std::string>& links) {
    std::string text;
    for (const auto& link : links)
        text.append(text.empty() ? "{" : ",").append("\"\\\\x").append(nameOfBytes(link)) += '"';
    return text + "}";
}

/// Parameters for the facts.
std::string marksFrom(int number) {
    std::string marks;
    for (std::size_t i = 0; i < FactNames.size(); ++i)
        marks += ", $" + std::to_string(number++);
    return marks;
}

/// Of the link $1 of the owner $2; from the given number on come the parameters for what is before
/// the facts, the moment from which on links are known, and the facts.
std::string replaceFrom(int number) {
    std::string text = "UPDATE links SET ";
    const auto set = [&](std::string_view column, std::string_view type) {
        text.append(column).append(" = $" + std::to_string(number++)).append(type);
    };
    set("availabilityStatus", "::integer");
    set(", proven", "::integer");
    set(", lastSign", "::bigint");
    const auto known = "$" + std::to_string(number++);
    for (auto name : FactNames)
        set(", " + std::string(name), "");
    return text + " WHERE link = $1::bytea AND owner = $2::bytea AND lastSign > " + known +
           "::bigint";
}

}  // namespace

std::unique_ptr<PostgresTable> PostgresTable::open(const std::string& place, std::string& error) {
    auto connection = connectToPostgres(place, PostgresUse::Serve, error);
    if (!connection)
        return nullptr;
    std::unique_ptr<PostgresTable> table(new PostgresTable(std::move(connection)));
    table->prepareStatements();
    return table;
}

PostgresTable::PostgresTable(std::unique_ptr<pqxx::connection> connection)
    : connection_(std::move(connection)) {}

/// They go to the server when they are used first.
void PostgresTable::prepareStatements() {
    const auto names = postgresFacts();
    connection_->prepare("replace", replaceFrom(3));
    connection_->prepare(
        "create",
        "WITH kept AS (" + replaceFrom(5) +
            " RETURNING 1), made AS (INSERT INTO links (link, owner, availabilityStatus, proven, "
            "lastSign" +
            names +
            ") SELECT $3::bytea, coalesce((SELECT owner FROM links WHERE owner = $2::bytea "
            "AND lastSign > $8::bigint LIMIT 1), $4::bytea), $5::integer, $6::integer, $7::bigint" +
            marksFrom(9) +
            " WHERE NOT EXISTS (SELECT FROM kept) RETURNING owner) "
            "SELECT owner = $4::bytea FROM made");
    connection_->prepare("remove",
                         "DELETE FROM links WHERE link = $1::bytea AND owner = $2::bytea "
                         "AND lastSign > $3::bigint");
    connection_->prepare("touch",
                         "UPDATE links SET lastSign = $2::bigint WHERE link = $1::bytea "
                         "AND lastSign < $2::bigint");
    connection_->prepare("find", "SELECT link, owner, availabilityStatus, proven, lastSign" +
                                     names +
                                     " FROM links WHERE link = ANY ($1::bytea[]) "
                                     "AND lastSign > $2::bigint");
    connection_->prepare("forget",
                         "DELETE FROM links WHERE id > $1::bigint AND id <= $2::bigint "
                         "AND lastSign <= $3::bigint");
    // One row a line, which is written over: a row a commit would be as many as there are links.
    connection_->prepare("mark",
                         "INSERT INTO zelvo_commits SELECT $1::bytea, $2::bigint, now() "
                         "WHERE pg_current_xact_id_if_assigned() IS NOT NULL "
                         "ON CONFLICT (line) DO UPDATE SET number = $2::bigint, made = now()");
    connection_->prepare("marked",
                         "INSERT INTO zelvo_commits VALUES ($1::bytea, 0, now()) "
                         "ON CONFLICT (line) DO UPDATE SET made = now() RETURNING number");
}

template <typename Work>
bool PostgresTable::attempt(Work&& work) {
    try {
        work();
        return true;
    } catch (const pqxx::sql_error& error) {
        canWrite_ = canWrite_ && error.sqlstate() != ReadOnlyTransaction;
        trouble_ = firstLineOf(error);
    } catch (const std::exception& error) {
        trouble_ = firstLineOf(error);
    }
    return false;
}

bool PostgresTable::begin() {
    return attempt([this] { work_.emplace(*connection_); });
}

PostgresTable::End PostgresTable::commit(const Mark& mark) {
    auto end = End::Failed;
    attempt([&] {
        // Who has not changed anything has nothing to doubt.
        const bool isMarked =
            work_->exec_prepared("mark", bytes(mark.line), mark.number).affected_rows() > 0;
        try {
            work_->commit();
            end = End::Done;
        } catch (const pqxx::in_doubt_error&) {
            end = isMarked ? End::InDoubt : End::Failed;
            throw;
        }
    });
    rollBack();
    return end;
}

void PostgresTable::rollBack() {
    attempt([this] { work_.reset(); });
}

std::optional<bool> PostgresTable::isMade(const Mark& mark) {
    std::int64_t number = 0;
    const bool isKnown = attempt([&] {
        pqxx::work work(*connection_);
        work.exec("SET LOCAL lock_timeout = '1s'");
        // Writing waits for one who has written the same row, which reading would not.
        number = work.exec_prepared1("marked", bytes(mark.line))[0].as<std::int64_t>();
        work.abort();
    });
    return isKnown ? std::optional(number == mark.number) : std::nullopt;
}

PostgresTable::Outcome PostgresTable::change(const std::function<pqxx::result()>& statement) {
    auto outcome = Outcome::Failed;
    attempt([&] { outcome = statement().affected_rows() > 0 ? Outcome::Done : Outcome::Unknown; });
    return outcome;
}

PostgresTable::Outcome PostgresTable::create(const LinkStore::Creation& creation, Moment now,
                                             LinkStore::Created& made) {
    const auto& registration = creation.registration;
    const auto isDone = attempt([&] {
        const auto result = work_->exec_prepared(
            "create", bytes(bytesOfName(creation.kept).value_or("")), bytes(creation.owner),
            bytes(bytesOfName(creation.newLink).value_or("")), bytes(creation.newOwner),
            static_cast<int>(registration.availability), registration.addressIsProven ? 1 : 0, now,
            now - life::KnownFor, pqxx::prepare::make_dynamic_params(factsOf(registration)));
        made.link = result.empty() ? creation.kept : creation.newLink;
        made.isNewOwner = !result.empty() && result[0][0].as<bool>();
    });
    return isDone ? Outcome::Done : Outcome::Failed;
}

PostgresTable::Outcome PostgresTable::replace(const std::string& link,
                                              const LinkStore::Owner& owner,
                                              const LinkStore::Registration& registration,
                                              Moment now) {
    return change([&] {
        return work_->exec_prepared("replace", bytes(link), bytes(owner),
                                    static_cast<int>(registration.availability),
                                    registration.addressIsProven ? 1 : 0, now, now - life::KnownFor,
                                    pqxx::prepare::make_dynamic_params(factsOf(registration)));
    });
}

PostgresTable::Outcome PostgresTable::remove(const std::string& link, const LinkStore::Owner& owner,
                                             Moment now) {
    return change([&] {
        return work_->exec_prepared("remove", bytes(link), bytes(owner), now - life::KnownFor);
    });
}

PostgresTable::Outcome PostgresTable::touch(const std::string& link, Moment now) {
    return change([&] { return work_->exec_prepared("touch", bytes(link), now); });
}

PostgresTable::Outcome PostgresTable::forgetSome(std::int64_t& after, Moment now) {
    return change([&] {
        auto result =
            work_->exec_prepared("forget", after, after + IdsAtOnce, now - life::KnownFor);
        const auto last =
            work_->exec1("SELECT coalesce(max(id), 0) FROM links")[0].as<std::int64_t>();
        after = after + IdsAtOnce < last ? after + IdsAtOnce : 0;
        // Of services that have ended. A mark that is being written is none of them.
        work_->exec(
            "DELETE FROM zelvo_commits WHERE line IN (SELECT line FROM zelvo_commits "
            "WHERE made < now() - interval '1 day' FOR UPDATE SKIP LOCKED)");
        return result;
    });
}

PostgresTable::Outcome PostgresTable::probe() {
    return change([this] { return work_->exec("UPDATE zelvo_layout SET version = version"); });
}

std::optional<std::vector<PostgresTable::Found>> PostgresTable::find(
    const std::vector<std::string>& links, Moment now) {
    std::vector<Found> found;
    const auto isDone = attempt([&] {
        pqxx::nontransaction session(*connection_);
        for (const auto& row :
             session.exec_prepared("find", arrayOf(links), now - life::KnownFor)) {
            auto& [link, record] = found.emplace_back();
            link = pqxx::binarystring(row[0]).str();
            record.owner = row[1].is_null() ? "" : pqxx::binarystring(row[1]).str();
            record.registration.availability = row[2].as<int>() == 0
                                                   ? LinkStore::Availability::Available
                                                   : LinkStore::Availability::Unavailable;
            record.registration.addressIsProven = row[3].as<int>() != 0;
            record.lastSign = row[4].as<Moment>();
            int column = 5;
            for (auto name : FactNames)
                record.registration.facts.emplace(name, row[column++].as<std::string>());
        }
    });
    return isDone ? std::optional(std::move(found)) : std::nullopt;
}

bool PostgresTable::isUsable() const {
    return canWrite_ && connection_->is_open();
}

}  // namespace zelvo::service
