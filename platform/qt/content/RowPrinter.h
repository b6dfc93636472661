#pragma once

#include <string>
#include <vector>

#include "platform/Observable.h"

namespace zelvo::platform {

class MainWindowModel;

/// Writes the rows as plain lines, one for each change of a text: "Port mapping: TEXT" and
/// "Connection: TEXT"; where the link is wanted, too, "Link: zelvo://..." for each new one that is
/// ready. It holds a key, and standard output may end in a log. What a terminal would not show is
/// escaped (shownText). Main thread only.
class RowPrinter {
  public:
    /// The descriptor stays the caller's. A write that fails ends the writing.
    RowPrinter(const MainWindowModel& model, bool printsLink, int descriptor = 1);
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
