#pragma once

#include <optional>
#include <pqxx/pqxx>

#include "service/LinkArchive.h"

namespace zelvo::service {

/// The links in a PostgreSQL database.
class PostgresArchive : public LinkArchive {
  public:
    /// Null, with the reason in error, when the database cannot be used.
    static std::unique_ptr<PostgresArchive> open(const std::string& place, Use use,
                                                 std::string& error);

    bool read(Others others, const std::function<bool(const Row&)>& row) override;
    std::optional<std::int64_t> count() override;
    bool beginAdding() override;
    bool add(const Row& row) override;
    bool endAdding() override;
    LinkStore::Outcome end(const std::string& link) override;
    std::optional<std::int64_t> purge(Moment lastSign) override;
    const std::string& trouble() const override { return trouble_; }

  private:
    explicit PostgresArchive(std::unique_ptr<pqxx::connection> connection)
        : connection_(std::move(connection)) {}
    template <typename Work>
    bool attempt(Work&& work);
    std::optional<std::int64_t> remove(const std::string& condition);

    std::unique_ptr<pqxx::connection> connection_;
    std::optional<pqxx::work> work_;
    std::unique_ptr<pqxx::stream_to> rows_;
    std::string trouble_;
};

}  // namespace zelvo::service
