#include "service/postgres/PostgresArchive.h"

#include <algorithm>
#include <array>

#include "service/Names.h"
#include "service/SharingFields.h"
#include "service/postgres/PostgresConnection.h"

namespace zelvo::service {
namespace {

std::string columns() {
    return "link, owner, availabilityStatus, proven, lastSign" + postgresFacts();
}

/// Bytes as PostgreSQL writes and reads them.
std::string asText(const std::string& bytes) {
    return "\\x" + nameOfBytes(bytes);
}

LinkArchive::Row rowOf(const pqxx::row& columns) {
    LinkArchive::Row row{pqxx::binarystring(columns[0]).str(), {}};
    auto& [registration, owner, lastSign] = row.record;
    if (!columns[1].is_null())
        owner = pqxx::binarystring(columns[1]).str();
    registration.availability = columns[2].as<int>() == 0 ? LinkStore::Availability::Available
                                                          : LinkStore::Availability::Unavailable;
    registration.addressIsProven = columns[3].as<int>() != 0;
    lastSign = columns[4].as<Moment>();
    int column = 5;
    for (auto name : FactNames)
        registration.facts.emplace(name, columns[column++].as<std::string>());
    return row;
}

}  // namespace

std::unique_ptr<PostgresArchive> PostgresArchive::open(const std::string& place, Use use,
                                                       std::string& error) {
    auto connection = connectToPostgres(place,
                                        use == Use::Look     ? PostgresUse::Look
                                        : use == Use::Change ? PostgresUse::Change
                                                             : PostgresUse::Fill,
                                        error);
    return connection ? std::unique_ptr<PostgresArchive>(new PostgresArchive(std::move(connection)))
                      : nullptr;
}

template <typename Work>
bool PostgresArchive::attempt(Work&& work) {
    try {
        work();
        return true;
    } catch (const std::exception& error) {
        trouble_ = firstLineOf(error);
        return false;
    }
}

bool PostgresArchive::read(Others others, const std::function<bool(const Row&)>& row) {
    return attempt([&] {
        pqxx::work work(*connection_);
        if (others == Others::MayNotChange)
            work.exec("LOCK TABLE links IN SHARE MODE");
        work.exec("DECLARE everything CURSOR FOR SELECT " + columns() + " FROM links");
        for (;;) {
            const auto some = work.exec("FETCH 1000 FROM everything");
            if (some.empty())
                return;
            for (const auto& it : some)
                if (!row(rowOf(it)))
                    return;
        }
    });
}

std::optional<std::int64_t> PostgresArchive::count() {
    std::int64_t count = 0;
    const bool isDone = attempt([&] {
        count = pqxx::work(*connection_).exec1("SELECT count(*) FROM links")[0].as<std::int64_t>();
    });
    return isDone ? std::optional(count) : std::nullopt;
}

bool PostgresArchive::beginAdding() {
    return attempt([this] {
        work_.emplace(*connection_);
        // Copying knows nothing of rows that are there already.
        work_->exec("CREATE TEMPORARY TABLE incoming ON COMMIT DROP AS SELECT " + columns() +
                    " FROM links WITH NO DATA");
        rows_ = std::make_unique<pqxx::stream_to>(*work_, "incoming");
    });
}

bool PostgresArchive::add(const Row& row) {
    const auto& [registration, owner, lastSign] = row.record;
    for (const auto& [name, fact] : registration.facts)
        if (fact.find('\0') != fact.npos) {
            trouble_ = name + " of " + nameOfBytes(row.link) + " holds a NUL, which no text can";
            return false;
        }
    const std::string texts[] = {asText(row.link), asText(owner),
                                 std::to_string(static_cast<int>(registration.availability)),
                                 registration.addressIsProven ? "1" : "0",
                                 std::to_string(lastSign)};
    // Of these a null pointer is NULL, which is nobody.
    std::array<const char*, std::size(texts) + FactNames.size()> fields{};
    auto next = std::ranges::transform(texts, fields.begin(), &std::string::c_str).out;
    if (owner.empty())
        fields[1] = nullptr;
    for (auto name : FactNames)
        *next++ = registration.facts.find(name)->second.c_str();
    return attempt([&] { *rows_ << fields; });
}

bool PostgresArchive::endAdding() {
    const bool isDone = attempt([this] {
        rows_->complete();
        work_->exec("INSERT INTO links (" + columns() + ") SELECT " + columns() +
                    " FROM incoming ON CONFLICT (link) DO NOTHING");
        work_->commit();
    });
    return attempt([this] {
               rows_.reset();
               work_.reset();
           }) &&
           isDone;
}

LinkStore::Outcome PostgresArchive::end(const std::string& link) {
    const auto count = remove("link = '" + asText(link) + "'::bytea");
    if (!count)
        return LinkStore::Outcome::Failed;
    return *count > 0 ? LinkStore::Outcome::Done : LinkStore::Outcome::Unknown;
}

std::optional<std::int64_t> PostgresArchive::purge(Moment lastSign) {
    return remove("lastSign <= " + std::to_string(lastSign));
}

std::optional<std::int64_t> PostgresArchive::remove(const std::string& condition) {
    std::int64_t count = 0;
    const bool isDone = attempt([&] {
        pqxx::work work(*connection_);
        count = static_cast<std::int64_t>(
            work.exec("DELETE FROM links WHERE " + condition).affected_rows());
        work.commit();
    });
    return isDone ? std::optional(count) : std::nullopt;
}

}  // namespace zelvo::service
