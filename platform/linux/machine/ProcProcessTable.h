#pragma once

#include <string>

#include "platform/ProcessTable.h"

namespace zelvo::platform {

/// The processes of /proc, in the order of their identifiers. A process that ends while the table
/// is being read is left out.
class ProcProcessTable : public ProcessTable {
  public:
    explicit ProcProcessTable(std::string procFolder = "/proc");

    int size(std::size_t& records) const override;
    int fetch(std::size_t room, std::vector<ProcessRecord>& records) const override;

  private:
    int identifiers(std::vector<std::int32_t>& found) const;

    const std::string procFolder_;
};

}  // namespace zelvo::platform
