#pragma once

#include "service/LinkArchive.h"

namespace zelvo::service {

class LinkTable;
class SqliteStatement;

/// The links in a SQLite file.
class SqliteArchive : public LinkArchive {
  public:
    /// Null, with the reason in error, when the file cannot be used.
    static std::unique_ptr<SqliteArchive> open(const std::string& file, Use use, Moment now,
                                               std::string& error);
    ~SqliteArchive() override;

    bool read(Others others, const std::function<bool(const Row&)>& row) override;
    std::optional<std::int64_t> count() override;
    bool beginAdding() override;
    bool add(const Row& row) override;
    bool endAdding() override;
    LinkStore::Outcome end(const std::string& link) override;
    std::optional<std::int64_t> purge(Moment lastSign) override;
    const std::string& trouble() const override { return trouble_; }

  private:
    bool readInParts(const std::function<bool(const Row&)>& row);
    explicit SqliteArchive(std::unique_ptr<LinkTable> table);
    bool execute(const char* sql);
    bool fail();
    /// Which others' changes change.
    std::int64_t version();

    std::unique_ptr<LinkTable> table_;
    std::unique_ptr<SqliteStatement> insert_;
    std::string trouble_;
};

}  // namespace zelvo::service
