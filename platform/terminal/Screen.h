#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/terminal/Encoding.h"

namespace zelvo::platform {

/// The whole of a terminal, drawn in place; only lines that change are written, so that what the
/// user has marked stays marked. The link comes last. It is handed to the terminal as one line,
/// which the terminal breaks itself, and so it is copied whole. Main thread only.
class Screen {
  public:
    struct Page {
        std::string title;
        /// Each wraps.
        std::vector<std::string> head;
        std::string keys;
        /// What is typed so far; none where keys count by themselves.
        std::optional<std::string> typed;
        std::string webLink;
        std::string link;
    };

    /// The descriptor, a terminal's, stays the caller's. Nothing is written while it says no to
    /// `isThere`; it is then drawn anew.
    Screen(int output, std::function<bool()> isThere)
        : output_(output), isThere_(std::move(isThere)) {}

    void show(Page page);
    /// Adds something that is said. It stays until there is no room for it any more, and takes away
    /// what covers the screen.
    void say(const std::string& line);
    /// Shows these lines in place of all but the link; none for the page again. `areRaw` where they
    /// are as they should be written.
    void cover(std::vector<std::string> lines, bool areRaw = false);
    bool isCovered() const { return !cover_.empty(); }

    /// Draws all of it, on a terminal that shows something else or has another size.
    void drawAnew();

    /// Has the terminal put the text on its user's clipboard, where it can and may (OSC 52).
    void copy(const std::string& text);

    /// Columns and lines.
    std::pair<int, int> size() const;

  private:
    struct Row {
        std::string text;
        /// Lines that the terminal breaks it into.
        int height = 1;
        friend bool operator==(const Row&, const Row&) = default;
    };

    void draw();
    std::vector<Row> pageRows(int columns, int lines);
    std::vector<Row> coveredRows(int columns, int lines);
    std::vector<Row> wholeRows(const std::string& text, int columns) const;
    std::vector<Row> wrappedRows(const std::vector<std::string>& texts, int columns) const;
    void write(const std::string& text);

    int output_;
    std::function<bool()> isThere_;
    Encoding encoding_;
    Page page_;
    std::deque<std::string> said_;
    std::vector<std::string> cover_;
    bool coverIsRaw_ = false;
    /// What the terminal shows.
    std::vector<Row> drawn_;
    /// Where the cursor belongs: the row, from 0, and its columns.
    std::pair<int, int> cursor_;
    std::optional<std::pair<int, int>> drawnCursor_;
};

}  // namespace zelvo::platform
