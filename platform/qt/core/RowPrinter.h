#pragma once

#include <string>
#include <vector>

#include "platform/Observable.h"

namespace zelvo::platform {

class MainWindowModel;

/// Writes the rows as plain lines, one for each change of a text: "Port mapping: TEXT",
/// "Connection: TEXT" and, for each new link that is ready, "Link: zelvo://...". Main thread only.
class RowPrinter {
  public:
    /// The descriptor stays the caller's. A write that fails ends the writing.
    explicit RowPrinter(const MainWindowModel& model, int descriptor = 1);
    RowPrinter(const RowPrinter&) = delete;
    RowPrinter& operator=(const RowPrinter&) = delete;

  private:
    struct Row {
        const char* label;
        std::string text;
    };

    void show(Row& row, const std::string& text);
    void showLink();

    const MainWindowModel& model_;
    int descriptor_;
    Row portMapping_{"Port mapping: ", {}};
    Row connection_{"Connection: ", {}};
    Row link_{"Link: ", {}};
    std::vector<Subscription> subscriptions_;
};

}  // namespace zelvo::platform
