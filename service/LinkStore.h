#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "service/FormDecoder.h"
#include "service/SqliteStatement.h"

namespace zelvo::service {

/// The registered links and their facts, in one SQLite file. A change is on the disk before its
/// operation returns, so that a killed process or a power cut loses none that was answered.
/// Any thread; operations run one after the other.
class LinkStore {
  public:
    enum class Outcome {
        Done,
        Unknown,  ///< no such link
        Failed,   ///< the database is damaged, locked or full; nothing has changed
    };
    enum class Availability : int { Available = 0, Unavailable = 1 };

    struct Registration {
        Fields facts;  ///< one value for each of FactNames
        Availability availability = Availability::Available;
    };

    /// Opens the database, or makes it where there is none. Null, with the reason in error, when
    /// it cannot be used.
    static std::unique_ptr<LinkStore> open(const std::string& file, std::string& error);

    /// Registers a new link. Failed also when the link is there already.
    Outcome insert(const std::string& link, const Registration& registration);
    /// Replaces everything that is kept under the link.
    Outcome replace(const std::string& link, const Registration& registration);
    Outcome remove(const std::string& link);
    Outcome find(const std::string& link, Registration& registration);

  private:
    struct Closer {
        void operator()(sqlite3* database) const;
    };

    LinkStore() = default;
    bool openFile(const std::string& file);
    bool execute(const std::string& sql);
    std::optional<std::string> value(const std::string& sql);
    bool prepareTable();
    bool makeTable();
    bool makeDurable();
    bool prepareStatements();
    Outcome change(SqliteStatement& statement);
    Outcome failed() const;

    std::mutex mutex_;
    std::unique_ptr<sqlite3, Closer> database_;
    std::string trouble_;
    SqliteStatement insert_;
    SqliteStatement replace_;
    SqliteStatement remove_;
    SqliteStatement find_;
};

}  // namespace zelvo::service
