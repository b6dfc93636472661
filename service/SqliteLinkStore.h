#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "service/LinkStore.h"

namespace zelvo::service {

class LinkTable;

/// The links in one SQLite file. Changes that wait while the disk is busy with others go to it
/// together; readers wait for nobody. What is too old is forgotten a few rows at a time.
class SqliteLinkStore : public LinkStore {
  public:
    using Clock = std::function<Moment()>;

    /// Opens the database, or makes it where there is none. Null, with the reason in error, when
    /// it cannot be used.
    static std::unique_ptr<SqliteLinkStore> open(const std::string& file, Clock clock,
                                                 std::string& error);
    SqliteLinkStore(const SqliteLinkStore&) = delete;
    SqliteLinkStore& operator=(const SqliteLinkStore&) = delete;
    /// What has been asked for is still done.
    ~SqliteLinkStore() override;

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
    /// One change: what it does inside a transaction, and what follows once that is durable, or,
    /// with Failed, has come to nothing.
    struct Job {
        std::function<Outcome(LinkTable&)> apply;
        std::function<void(Outcome)> finish;
    };

    SqliteLinkStore(std::string file, Clock clock, std::unique_ptr<LinkTable> writer);
    void submit(Job job);
    void write();
    void commit(std::deque<Job>& jobs);
    void keepHouse();
    Outcome forgetOrProbe(LinkTable& table);
    void complain(const std::string& trouble);
    std::unique_ptr<LinkTable> takeReader();

    const std::string file_;
    const Clock clock_;
    std::unique_ptr<LinkTable> writer_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable houseChanged_;
    std::deque<Job> jobs_;
    bool ending_ = false;
    bool logIsLong_ = false;

    std::mutex readersMutex_;
    std::vector<std::unique_ptr<LinkTable>> readers_;

    std::mutex troubleMutex_;
    std::string trouble_;
    Moment complainedAt_ = 0;

    std::int64_t forgottenUpTo_ = 0;  ///< the writer's
    std::atomic<bool> isWell_ = true;
    std::atomic<bool> logIsNearlyShort_ = false;
    std::atomic<std::uint64_t> commits_ = 0;
    std::atomic<std::uint64_t> changes_ = 0;
    std::atomic<std::uint64_t> failures_ = 0;
    std::thread keeping_;
    std::thread writing_;
};

}  // namespace zelvo::service
