#include "service/SqliteLinkStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

#include "service/LinkTable.h"
#include "service/Names.h"

namespace zelvo::service {
namespace {

using namespace std::chrono_literals;

/// More would wait longer than their clients do.
constexpr std::size_t MostWaiting = 8192;
constexpr std::size_t MostAtOnce = 256;
/// Pages of the log from which on it is worth a visit to the table.
constexpr int LongLog = 4000;
constexpr auto HousekeepingEvery = 5s;

}  // namespace

std::unique_ptr<SqliteLinkStore> SqliteLinkStore::open(const std::string& file, Clock clock,
                                                       std::string& error) {
    auto writer = LinkTable::open(file, LinkTable::Use::Write, clock(), error);
    if (!writer)
        return nullptr;
    return std::unique_ptr<SqliteLinkStore>(
        new SqliteLinkStore(file, std::move(clock), std::move(writer)));
}

SqliteLinkStore::SqliteLinkStore(std::string file, Clock clock, std::unique_ptr<LinkTable> writer)
    : file_(std::move(file)),
      clock_(std::move(clock)),
      writer_(std::move(writer)),
      keeping_([this] { keepHouse(); }),
      writing_([this] { write(); }) {
    // The log is brought into the table by the housekeeper and not by whoever makes it too long.
    sqlite3_wal_hook(
        writer_->database(),
        [](void* self, sqlite3*, const char*, int pages) {
            if (pages >= LongLog) {
                auto& store = *static_cast<SqliteLinkStore*>(self);
                const std::lock_guard lock(store.mutex_);
                if (!std::exchange(store.logIsLong_, true))
                    store.houseChanged_.notify_one();
            }
            return SQLITE_OK;
        },
        this);
}

SqliteLinkStore::~SqliteLinkStore() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    houseChanged_.notify_one();
    keeping_.join();
    writing_.join();
}

void SqliteLinkStore::create(Creation creation, std::function<void(const Created&)> done) {
    struct Work {
        Creation wanted;
        Created made;
    };
    auto work = std::make_shared<Work>(Work{std::move(creation), {}});
    submit({[this, work](LinkTable& table) {
                auto& [wanted, made] = *work;
                const auto now = clock_();
                if (const auto kept = bytesOfName(wanted.kept)) {
                    made.link = wanted.kept;
                    const auto outcome =
                        table.replace(*kept, wanted.owner, wanted.registration, now);
                    if (outcome != Outcome::Unknown)
                        return outcome;
                }
                const auto owns = table.owns(wanted.owner, now);
                if (owns == Outcome::Failed)
                    return owns;
                made.isNewOwner = owns == Outcome::Unknown;
                made.link = wanted.newLink;
                return table.insert(bytesOfName(wanted.newLink).value_or(""),
                                    made.isNewOwner ? wanted.newOwner : wanted.owner,
                                    wanted.registration, now);
            },
            [work, done = std::move(done)](Outcome outcome) {
                work->made.outcome = outcome;
                done(work->made);
            }});
}

void SqliteLinkStore::replace(const std::string& link, const Owner& owner,
                              Registration registration, std::function<void(Outcome)> done) {
    const auto name = bytesOfName(link);
    if (!name)
        return done(Outcome::Unknown);
    auto kept = std::make_shared<Registration>(std::move(registration));
    submit({[this, name = *name, owner, kept](LinkTable& table) {
                return table.replace(name, owner, *kept, clock_());
            },
            std::move(done)});
}

void SqliteLinkStore::remove(const std::string& link, const Owner& owner,
                             std::function<void(Outcome)> done) {
    const auto name = bytesOfName(link);
    if (!name)
        return done(Outcome::Unknown);
    submit({[this, name = *name, owner](LinkTable& table) {
                return table.remove(name, owner, clock_());
            },
            std::move(done)});
}

void SqliteLinkStore::touch(const std::string& link) {
    if (const auto name = bytesOfName(link))
        submit({[this, name = *name](LinkTable& table) { return table.touch(name, clock_()); },
                [](Outcome) {}});
}

void SqliteLinkStore::find(const std::string& link,
                           std::function<void(Outcome, const Record&)> done) {
    Record record;
    const auto name = bytesOfName(link);
    if (!name)
        return done(Outcome::Unknown, record);
    auto outcome = Outcome::Failed;
    if (auto reader = takeReader()) {
        outcome = reader->find(*name, clock_(), record);
        // One that failed may have lost its file: the next one is opened anew.
        if (outcome == Outcome::Failed) {
            complain(reader->trouble());
        } else {
            const std::lock_guard lock(readersMutex_);
            readers_.push_back(std::move(reader));
        }
    }
    done(outcome, record);
}

std::unique_ptr<LinkTable> SqliteLinkStore::takeReader() {
    {
        const std::lock_guard lock(readersMutex_);
        if (!readers_.empty()) {
            auto reader = std::move(readers_.back());
            readers_.pop_back();
            return reader;
        }
    }
    std::string error;
    return LinkTable::open(file_, LinkTable::Use::Read, 0, error);
}

void SqliteLinkStore::submit(Job job) {
    {
        const std::lock_guard lock(mutex_);
        if (jobs_.size() < MostWaiting && !ending_) {
            jobs_.push_back(std::move(job));
            changed_.notify_one();
            return;
        }
    }
    job.finish(Outcome::Failed);
}

void SqliteLinkStore::write() {
    for (;;) {
        std::deque<Job> taken;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
            if (jobs_.empty())
                return;
            while (!jobs_.empty() && taken.size() < MostAtOnce) {
                taken.push_back(std::move(jobs_.front()));
                jobs_.pop_front();
            }
        }
        commit(taken);
        // The last few pages, so that the log begins anew with the next change.
        int pages = 0;
        int left = 0;
        if (logIsNearlyShort_.exchange(false))
            writer_->checkpoint(pages, left);
    }
}

void SqliteLinkStore::commit(std::deque<Job>& jobs) {
    std::vector<Outcome> outcomes(jobs.size(), Outcome::Failed);
    bool isDone = writer_->begin();
    for (std::size_t i = 0; isDone && i < jobs.size(); ++i) {
        outcomes[i] = jobs[i].apply(*writer_);
        // One statement's failure is that job's alone, unless it took the transaction with it.
        isDone = writer_->isInTransaction();
    }
    isDone = isDone && writer_->commit();
    if (!isDone) {
        writer_->rollBack();
        std::ranges::fill(outcomes, Outcome::Failed);
    }
    isWell_ = std::ranges::count(outcomes, Outcome::Failed) == 0;
    if (!isWell_)
        complain(writer_->trouble());
    ++commits_;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        ++(outcomes[i] == Outcome::Failed ? failures_ : changes_);
        jobs[i].finish(outcomes[i]);
    }
}

void SqliteLinkStore::keepHouse() {
    std::string error;
    std::unique_ptr<LinkTable> table;
    std::unique_lock lock(mutex_);
    while (!ending_) {
        const bool isTime = !houseChanged_.wait_for(lock, HousekeepingEvery,
                                                    [this] { return ending_ || logIsLong_; });
        const bool wasLong = std::exchange(logIsLong_, false);
        if (ending_)
            return;
        lock.unlock();
        if (!table)
            table = LinkTable::open(file_, LinkTable::Use::Read, 0, error);
        int pages = 0;
        int left = 0;
        if (table && wasLong) {
            if (table->checkpoint(pages, left))
                logIsNearlyShort_ = true;
            else
                table.reset();  // it may have been opened where nothing could be written
        }
        if (isTime)
            submit({[this](LinkTable& writer) { return forgetOrProbe(writer); }, [](Outcome) {}});
        lock.lock();
    }
}

LinkStore::Outcome SqliteLinkStore::forgetOrProbe(LinkTable& table) {
    // Where nobody is sent to a service that is not well, nobody else would find out that it is.
    if (!isWell_)
        return table.probe();
    const auto last = table.forgetSome(forgottenUpTo_, clock_());
    forgottenUpTo_ = std::max<std::int64_t>(last, 0);
    return last < 0 ? Outcome::Failed : Outcome::Done;
}

void SqliteLinkStore::complain(const std::string& trouble) {
    constexpr Moment again = 60;
    const std::lock_guard lock(troubleMutex_);
    if (trouble == trouble_ && clock_() < complainedAt_ + again)
        return;
    trouble_ = trouble;
    complainedAt_ = clock_();
    std::fprintf(stderr, "zelvo-service: database: %s\n", trouble.c_str());
}

LinkStore::Figures SqliteLinkStore::figures() const {
    const std::lock_guard lock(mutex_);
    return {commits_, changes_, failures_, jobs_.size()};
}

}  // namespace zelvo::service
