#pragma once

#include <map>
#include <set>
#include <string>

#include "platform/Log.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/nat/base/MappingRecord.h"

namespace zelvo::platform {

/// Keeps on disk what may be mapped on a router, so that the next start can withdraw what a crash
/// has left. One file for each process, locked while it lives; the files of the dead are taken
/// over.
class MappingJournal {
  public:
    /// The folder is made where it is missing; empty for no journal.
    MappingJournal(const std::string& folder, Log& log);

    /// Is on disk when this returns, unless the disk refuses, which is logged.
    int add(MappingRecord record);
    void remove(int id);
    /// Nobody holds it any more, and it may be there still.
    void abandon(int id) { abandoned_.insert(id); }

    /// Right after the construction, all that others have left.
    const std::set<int>& abandoned() const { return abandoned_; }

    /// Everything that is recorded.
    const std::map<int, MappingRecord>& records() const { return records_; }

  private:
    void takeOver();
    /// The file with its lock, its records taken in; empty when it is not for us.
    FileDescriptor takeOverFile(const std::string& path);
    /// False when the disk refuses.
    bool write();
    bool writeFile(const std::string& temporary);

    std::string folder_;
    Log& log_;
    std::string ownNumber_;
    std::string path_;
    FileDescriptor file_;
    std::map<int, MappingRecord> records_;
    std::set<int> abandoned_;
    int nextId_ = 0;
};

}  // namespace zelvo::platform
