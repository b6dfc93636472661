#include "service/postgres/PostgresLinkStore.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <utility>

#include "service/Names.h"

namespace zelvo::service {
namespace {

using namespace std::chrono_literals;
using Outcome = LinkStore::Outcome;
using SteadyClock = std::chrono::steady_clock;

/// More would wait longer than their clients do.
constexpr std::size_t MostWaiting = 8192;
constexpr std::size_t MostAtOnce = 256;
constexpr std::size_t MostQuestionsAtOnce = 64;
constexpr auto HousekeepingEvery = 5s;
/// Where nobody is sent to a service that is not well, nobody else would find out that it is.
constexpr auto ProbeEvery = 1s;
/// A server that neither answers nor goes must not keep everybody waiting until they give up.
constexpr auto WaitAtMost = 10s;
/// Between attempts to connect, in which what comes is refused.
constexpr auto ConnectAgainAfter = 300ms;
/// For how long a server that went while it committed may take to come back and say what it did.
constexpr auto DoubtAtMost = 5s;

}  // namespace

/// One thread's connection.
class PostgresLinkStore::Line {
  public:
    explicit Line(std::string place) : place_(std::move(place)) {}

    /// Null, with trouble(), where there is no server now.
    PostgresTable* table() {
        if (table_ && !table_->isUsable())
            table_.reset();
        if (mark_.line.empty())
            mark_.line = newName().value_or("");
        if (mark_.line.empty()) {
            trouble_ = "no random bytes";
            return nullptr;
        }
        if (!table_ && SteadyClock::now() >= againAt_) {
            table_ = PostgresTable::open(place_, trouble_);
            againAt_ = SteadyClock::now() + ConnectAgainAfter;
        }
        return table_.get();
    }
    const std::string& trouble() const { return trouble_; }
    void keep(const std::string& trouble) { trouble_ = trouble; }
    /// Of the transaction that comes next, and from then on of the last one.
    const PostgresTable::Mark& nextMark() {
        ++mark_.number;
        return mark_;
    }
    const PostgresTable::Mark& lastMark() const { return mark_; }

  private:
    const std::string place_;
    std::unique_ptr<PostgresTable> table_;
    std::string trouble_;
    PostgresTable::Mark mark_;
    SteadyClock::time_point againAt_{};
};

std::unique_ptr<PostgresLinkStore> PostgresLinkStore::open(const std::string& place,
                                                           std::size_t connections, Clock clock,
                                                           std::string& error) {
    auto table = PostgresTable::open(place, error);
    if (!table)
        return nullptr;
    if (!table->begin() || table->probe() != Outcome::Done ||
        table->commit({newName().value_or(""), 1}) != PostgresTable::End::Done) {
        error = table->trouble();
        return nullptr;
    }
    return std::unique_ptr<PostgresLinkStore>(
        new PostgresLinkStore(place, connections, std::move(clock)));
}

PostgresLinkStore::PostgresLinkStore(std::string place, std::size_t connections, Clock clock)
    : place_(std::move(place)),
      clock_(std::move(clock)),
      changes_(MostWaiting),
      questions_(MostWaiting) {
    for (std::size_t i = 0; i < std::max<std::size_t>(connections / 2, 1); ++i) {
        threads_.emplace_back([this] { write(); });
        threads_.emplace_back([this] { answer(); });
    }
    threads_.emplace_back([this] { keepHouse(); });
}

PostgresLinkStore::~PostgresLinkStore() {
    changes_.end();
    questions_.end();
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    ended_.notify_all();
    for (auto& thread : threads_)
        thread.join();
}

void PostgresLinkStore::create(Creation creation, std::function<void(const Created&)> done) {
    struct Work {
        Creation wanted;
        Created made;
    };
    auto work = std::make_shared<Work>(Work{std::move(creation), {}});
    submit({bytesOfName(work->wanted.kept).value_or(""),
            [this, work](PostgresTable& table) {
                return table.create(work->wanted, clock_(), work->made);
            },
            [work, done = std::move(done)](Outcome outcome) {
                work->made.outcome = outcome;
                done(work->made);
            }});
}

void PostgresLinkStore::replace(const std::string& link, const Owner& owner,
                                Registration registration, std::function<void(Outcome)> done) {
    const auto name = bytesOfName(link);
    if (!name)
        return done(Outcome::Unknown);
    auto kept = std::make_shared<Registration>(std::move(registration));
    submit({*name,
            [this, name = *name, owner, kept](PostgresTable& table) {
                return table.replace(name, owner, *kept, clock_());
            },
            std::move(done)});
}

void PostgresLinkStore::remove(const std::string& link, const Owner& owner,
                               std::function<void(Outcome)> done) {
    const auto name = bytesOfName(link);
    if (!name)
        return done(Outcome::Unknown);
    submit({*name,
            [this, name = *name, owner](PostgresTable& table) {
                return table.remove(name, owner, clock_());
            },
            std::move(done)});
}

void PostgresLinkStore::touch(const std::string& link) {
    if (const auto name = bytesOfName(link))
        submit({*name,
                [this, name = *name](PostgresTable& table) { return table.touch(name, clock_()); },
                [](Outcome) {}});
}

void PostgresLinkStore::find(const std::string& link,
                             std::function<void(Outcome, const Record&)> done) {
    const auto name = bytesOfName(link);
    if (!name)
        return done(Outcome::Unknown, {});
    Question question{*name, std::move(done)};
    if (!questions_.add(question))
        question.done(Outcome::Failed, {});
}

void PostgresLinkStore::submit(Change change) {
    if (!changes_.add(change))
        change.finish(Outcome::Failed);
}

void PostgresLinkStore::write() {
    Line line(place_);
    for (auto changes = changes_.take(MostAtOnce); !changes.empty();
         changes = changes_.take(MostAtOnce)) {
        // Whoever changes rows waits for others who have changed them; in the same order
        // everywhere, nobody waits in a circle. What concerns one link stays in the order that it
        // came in.
        std::ranges::stable_sort(changes, {}, &Change::link);
        std::vector<Outcome> outcomes(changes.size(), Outcome::Failed);
        if (!apply(line, changes, outcomes))
            // One of them fails, and the others have come to nothing with it.
            for (std::size_t i = 0; i < changes.size(); ++i)
                apply(line, std::span(changes).subspan(i, 1), std::span(outcomes).subspan(i, 1));
        isWell_ = std::ranges::count(outcomes, Outcome::Failed) == 0;
        if (!isWell_)
            complain(line.trouble());
        for (std::size_t i = 0; i < changes.size(); ++i) {
            ++(outcomes[i] == Outcome::Failed ? failures_ : done_);
            changes[i].finish(outcomes[i]);
        }
    }
}

/// In one transaction. False where it might go better with each by itself.
bool PostgresLinkStore::apply(Line& line, std::span<const Change> changes,
                              std::span<Outcome> outcomes) {
    // A server that has been restarted is noticed by the first who uses an old connection. Until
    // the commit is sent nothing has changed, so there is a second time.
    for (int attempt = 0; attempt < 2; ++attempt) {
        std::ranges::fill(outcomes, Outcome::Failed);
        auto* table = line.table();
        if (!table)
            return true;
        bool isDone = table->begin();
        for (std::size_t i = 0; isDone && i < changes.size(); ++i) {
            outcomes[i] = changes[i].apply(*table);
            isDone = outcomes[i] != Outcome::Failed;
        }
        auto end = PostgresTable::End::Failed;
        if (isDone)
            end = table->commit(line.nextMark());
        else
            table->rollBack();
        ++commits_;
        if (end == PostgresTable::End::Done)
            return true;
        line.keep(table->trouble());
        if (end == PostgresTable::End::InDoubt) {
            if (!settle(line))
                std::ranges::fill(outcomes, Outcome::Failed);
            return true;
        }
        std::ranges::fill(outcomes, Outcome::Failed);
        if (table->isUsable())
            return changes.size() == 1;
    }
    return true;
}

/// Whether the last transaction has been made, as a new connection knows. False also where none
/// comes about in time.
bool PostgresLinkStore::settle(Line& line) {
    const auto last = SteadyClock::now() + DoubtAtMost;
    while (SteadyClock::now() < last) {
        auto* table = line.table();
        if (const auto isMade = table ? table->isMade(line.lastMark()) : std::nullopt)
            return *isMade;
        // Others have nothing to wait for.
        if (!table)
            refuseOlderThan(0s);
        std::this_thread::sleep_for(50ms);
    }
    return false;
}

void PostgresLinkStore::answer() {
    Line line(place_);
    for (auto questions = questions_.take(MostQuestionsAtOnce); !questions.empty();
         questions = questions_.take(MostQuestionsAtOnce)) {
        std::vector<std::string> links;
        for (const auto& question : questions)
            links.push_back(question.link);
        std::optional<std::vector<PostgresTable::Found>> found;
        for (int attempt = 0; attempt < 2 && !found; ++attempt) {
            auto* table = line.table();
            if (!table)
                break;
            found = table->find(links, clock_());
            if (!found)
                line.keep(table->trouble());
        }
        if (!found)
            complain(line.trouble());
        std::map<std::string_view, const Record*> records;
        if (found)
            for (const auto& it : *found)
                records.emplace(it.link, &it.record);
        for (const auto& question : questions) {
            const auto record = records.find(question.link);
            if (record != records.end())
                question.done(Outcome::Done, *record->second);
            else
                question.done(found ? Outcome::Unknown : Outcome::Failed, {});
        }
    }
}

void PostgresLinkStore::keepHouse() {
    std::unique_lock lock(mutex_);
    auto last = SteadyClock::now();
    while (!ended_.wait_for(lock, ProbeEvery, [this] { return isEnding_; })) {
        refuseOlderThan(WaitAtMost);
        const auto now = SteadyClock::now();
        if (!isWell_) {
            submit({"", [](PostgresTable& table) { return table.probe(); }, [](Outcome) {}});
        } else if (now - last >= HousekeepingEvery) {
            last = now;
            submit({"",
                    [this](PostgresTable& table) {
                        std::int64_t after = forgottenUpTo_;
                        const auto outcome = table.forgetSome(after, clock_());
                        forgottenUpTo_ = after;
                        return outcome;
                    },
                    [](Outcome) {}});
        }
    }
}

void PostgresLinkStore::refuseOlderThan(std::chrono::seconds age) {
    auto changes = changes_.takeStale(age);
    auto questions = questions_.takeStale(age);
    if (changes.empty() && questions.empty())
        return;
    isWell_ = false;
    complain("it does not answer");
    failures_ += changes.size();
    for (const auto& change : changes)
        change.finish(Outcome::Failed);
    for (const auto& question : questions)
        question.done(Outcome::Failed, {});
}

void PostgresLinkStore::complain(const std::string& trouble) {
    constexpr Moment again = 60;
    const std::lock_guard lock(troubleMutex_);
    if (trouble == trouble_ && clock_() < complainedAt_ + again)
        return;
    trouble_ = trouble;
    complainedAt_ = clock_();
    std::fprintf(stderr, "zelvo-service: database: %s\n", trouble.c_str());
}

LinkStore::Figures PostgresLinkStore::figures() const {
    return {commits_, done_, failures_, changes_.size()};
}

}  // namespace zelvo::service
