#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "service/LinkStore.h"
#include "service/postgres/PostgresTable.h"
#include "service/postgres/WaitingLine.h"

namespace zelvo::service {

/// The links in a PostgreSQL database, which other services may share. Each connection has a thread
/// of its own, so nobody else waits for the server. Changes that wait while a connection is busy go
/// to the server together, and so do questions. A connection that is lost is made anew; until then
/// what comes is refused at once.
class PostgresLinkStore : public LinkStore {
  public:
    using Clock = std::function<Moment()>;

    /// Opens the database, with half of the connections for changes. Null, with the reason in
    /// error, when it cannot be used.
    static std::unique_ptr<PostgresLinkStore> open(const std::string& place,
                                                   std::size_t connections, Clock clock,
                                                   std::string& error);
    PostgresLinkStore(const PostgresLinkStore&) = delete;
    PostgresLinkStore& operator=(const PostgresLinkStore&) = delete;
    /// What has been asked for is still done.
    ~PostgresLinkStore() override;

    void create(Creation creation, std::function<void(const Created&)> done) override;
    void replace(const std::string& link, const Owner& owner, Registration registration,
                 std::function<void(Outcome)> done) override;
    void remove(const std::string& link, const Owner& owner,
                std::function<void(Outcome)> done) override;
    void find(const std::string& link, std::function<void(Outcome, const Record&)> done) override;
    void touch(const std::string& link) override;
    bool isWell() const override { return isWell_; }
    Figures figures() const override;

  private:
    struct Change {
        std::string link;  ///< whose row it may have to wait for; empty for none
        std::function<Outcome(PostgresTable&)> apply;
        std::function<void(Outcome)> finish;
    };
    struct Question {
        std::string link;
        std::function<void(Outcome, const Record&)> done;
    };
    class Line;

    PostgresLinkStore(std::string place, std::size_t connections, Clock clock);
    void submit(Change change);
    void write();
    bool apply(Line& line, std::span<const Change> changes, std::span<Outcome> outcomes);
    bool settle(Line& line);
    void refuseOlderThan(std::chrono::seconds age);
    void answer();
    void keepHouse();
    void complain(const std::string& trouble);

    const std::string place_;
    const Clock clock_;
    WaitingLine<Change> changes_;
    WaitingLine<Question> questions_;

    std::mutex mutex_;
    std::condition_variable ended_;
    bool isEnding_ = false;

    std::mutex troubleMutex_;
    std::string trouble_;
    Moment complainedAt_ = 0;

    std::atomic<std::int64_t> forgottenUpTo_ = 0;
    std::atomic<bool> isWell_ = true;
    std::atomic<std::uint64_t> commits_ = 0;
    std::atomic<std::uint64_t> done_ = 0;
    std::atomic<std::uint64_t> failures_ = 0;
    std::vector<std::thread> threads_;
};

}  // namespace zelvo::service
