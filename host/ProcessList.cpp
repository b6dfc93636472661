#include <cerrno>
#include <new>
#include <stdexcept>

#include "host/KVSystemInformation.h"
#include "platform/ProcessTable.h"

namespace zelvo {

namespace {

constexpr std::size_t CommandNameLength = 16;

bool makeRoom(std::vector<platform::ProcessRecord>& records, std::size_t count) {
    try {
        records.reserve(count);
        return true;
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    return false;
}

/// 0 and the records, or an errno value and none. Reads anew, at once and as often as it takes,
/// while the table grows between its size and its fetch.
int readProcessTable(const platform::ProcessTable& table,
                     std::vector<platform::ProcessRecord>& records) {
    int error = 0;
    do {
        records.clear();
        std::size_t count = 0;
        error = table.size(count);
        if (error != 0)
            break;
        if (!makeRoom(records, count))
            return ENOMEM;
        error = table.fetch(count, records);
    } while (error == platform::ProcessTableGrown);
    if (error != 0)
        records.clear();
    return error;
}

}  // namespace

KVSystemInformation::ProcessMap KVSystemInformation::processList(
    const platform::ProcessTable& processes) {
    ProcessMap map;
    std::vector<platform::ProcessRecord> records;
    if (readProcessTable(processes, records) != 0)
        return map;
    for (const auto& record : records)
        map[record.command.substr(0, CommandNameLength)] = {{"pid", record.pid}};
    return map;
}

}  // namespace zelvo
