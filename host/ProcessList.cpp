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

/// None when the table cannot be read. Reads anew, at once and as often as it takes, while the
/// table grows between its size and its fetch.
std::optional<std::vector<platform::ProcessRecord>> readProcessTable(
    const platform::ProcessTable& table) {
    for (;;) {
        std::vector<platform::ProcessRecord> records;
        std::size_t count = 0;
        if (table.size(count) != 0 || !makeRoom(records, count))
            return std::nullopt;
        int error = table.fetch(count, records);
        if (error == 0)
            return records;
        if (error != platform::ProcessTableGrown)
            return std::nullopt;
    }
}

}  // namespace

KVSystemInformation::ProcessMap KVSystemInformation::processList(
    const platform::ProcessTable& processes) {
    ProcessMap map;
    auto records = readProcessTable(processes);
    if (!records)
        return map;
    for (const auto& record : *records)
        map[record.command.substr(0, CommandNameLength)] = {{"pid", record.pid}};
    return map;
}

}  // namespace zelvo
