#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "service/LinkStore.h"

namespace zelvo::service {

/// All links of a database, for whoever runs the service. Calls take as long as the database has
/// links. Used by one thread.
class LinkArchive {
  public:
    struct Row {
        std::string link;  ///< the bytes of its name
        LinkStore::Record record;
    };
    enum class Others {
        MayChange,
        MayNotChange,  ///< where the database can keep them from it; else it fails if they have
    };
    /// What a database is opened for.
    enum class Use {
        Look,    ///< nothing can be changed
        Change,  ///< of what is there
        Fill,    ///< makes it where there is none, and brings an older layout up to date
    };

    virtual ~LinkArchive() = default;

    /// Hands out every link, until `row` says false: where no service may change one meanwhile, all
    /// as they are at one moment, else maybe some later than others. False when the database
    /// failed, or was changed all the same.
    virtual bool read(Others others, const std::function<bool(const Row&)>& row) = 0;
    /// How many links there are, also those that are too old; nothing when the database failed.
    virtual std::optional<std::int64_t> count() = 0;

    /// Rows that are added between the two are there together, or none is. Of a link that is there
    /// already the row stays as it is.
    virtual bool beginAdding() = 0;
    virtual bool add(const Row& row) = 0;
    virtual bool endAdding() = 0;

    /// Ends a link, whoever it belongs to. Unknown where there is none.
    virtual LinkStore::Outcome end(const std::string& link) = 0;
    /// Forgets the links whose last sign is not later: how many.
    virtual std::optional<std::int64_t> purge(Moment lastSign) = 0;

    /// Why something failed last.
    virtual const std::string& trouble() const = 0;
};

}  // namespace zelvo::service
