#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/UrlSession.h"

namespace zelvo::platform {

class Log;

/// Keeps on disk which links the sharing service has not confirmed to be withdrawn, with the
/// requests that withdraw them. Main thread only.
class WithdrawalJournal {
  public:
    /// Reads what earlier runs have left. An empty folder keeps nothing.
    WithdrawalJournal(const std::string& folder, Log& log);

    /// Is on disk when this returns, unless the disk refuses, which is logged. Takes the place of
    /// an earlier one for the same link.
    void add(const UrlRequest& request);
    /// Named as SharingRequest names a link.
    void remove(const std::string& link);

    std::vector<UrlRequest> requests() const;

  private:
    struct Record {
        /// Seconds since 1970.
        std::int64_t writtenAt = 0;
        std::string url;
        std::string form;
    };

    static UrlRequest requestOf(const Record& record);
    void read();
    void write();

    const std::string file_;
    Log& log_;
    /// By the link.
    std::map<std::string, Record> records_;
};

}  // namespace zelvo::platform
