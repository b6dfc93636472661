#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zelvo::platform {

struct ProcessRecord {
    /// The kernel's command name, at most 16 characters.
    std::string command;
    std::int32_t pid = 0;
};

/// ProcessTable: the table has grown beyond the buffer (errno ENOMEM).
inline constexpr int ProcessTableGrown = 12;

/// The kernel's process table, read in two steps as it may grow between them. Any thread.
class ProcessTable {
  public:
    virtual ~ProcessTable() = default;

    /// 0 and the number of records to make room for, or an errno value.
    virtual int size(std::size_t& records) const = 0;
    /// 0 and the records in the kernel's order, ProcessTableGrown when they are more than `room`,
    /// or another errno value.
    virtual int fetch(std::size_t room, std::vector<ProcessRecord>& records) const = 0;
};

}  // namespace zelvo::platform
