#include "platform/terminal/Screen.h"

#include <sys/ioctl.h>

#include <QByteArray>
#include <algorithm>
#include <iterator>

#include "platform/qt/core/WriteAll.h"
#include "platform/terminal/Wrapping.h"

namespace zelvo::platform {

namespace {

constexpr std::size_t MostSaid = 200;
/// What is said last has to be read, whatever else there is.
constexpr int FewestLines = 6;
constexpr const char* Bold = "\033[1m";
constexpr const char* Normal = "\033[0m";

std::string moveTo(int row, int column) {
    return "\033[" + std::to_string(row + 1) + ";" + std::to_string(column + 1) + "H";
}

template <typename Row>
void append(std::vector<Row>& rows, std::vector<Row> more) {
    rows.insert(rows.end(), std::make_move_iterator(more.begin()),
                std::make_move_iterator(more.end()));
}

template <typename Row>
int heightOf(const std::vector<Row>& rows) {
    int sum = 0;
    for (const auto& row : rows)
        sum += row.height;
    return sum;
}

}  // namespace

std::pair<int, int> Screen::size() const {
    winsize size{};
    if (::ioctl(output_, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {80, 24};
    return {size.ws_col, size.ws_row};
}

void Screen::show(Page page) {
    page_ = std::move(page);
    draw();
}

void Screen::say(const std::string& line) {
    said_.push_back(line);
    if (said_.size() > MostSaid)
        said_.pop_front();
    cover_.clear();
    draw();
}

void Screen::cover(std::vector<std::string> lines, bool areRaw) {
    cover_ = std::move(lines);
    coverIsRaw_ = areRaw;
    draw();
}

void Screen::drawAnew() {
    drawn_.clear();
    drawnCursor_.reset();
    write("\033[2J");
    draw();
}

void Screen::copy(const std::string& text) {
    write("\033]52;c;" + QByteArray::fromStdString(text).toBase64().toStdString() + "\a");
}

std::vector<Screen::Row> Screen::wholeRows(const std::string& text, int columns) const {
    if (text.empty())
        return {};
    const auto shown = encoding_.showable(text);
    return {{encoding_.encoded(shown), (columnsOf(shown) + columns - 1) / columns}};
}

std::vector<Screen::Row> Screen::wrappedRows(const std::vector<std::string>& texts,
                                             int columns) const {
    std::vector<Row> rows;
    for (const auto& text : texts)
        for (const auto& line : wrapped(encoding_.showable(text), columns))
            rows.push_back({encoding_.encoded(line)});
    return rows;
}

std::vector<Screen::Row> Screen::coveredRows(int columns, int lines) {
    std::vector<Row> rows;
    if (coverIsRaw_)
        for (const auto& line : cover_)
            rows.push_back({line});
    else
        rows = wrappedRows(cover_, columns);
    cursor_ = {0, 0};
    // A code that lacks lines is none.
    if (auto link = wholeRows(page_.link, columns); heightOf(rows) + heightOf(link) <= lines) {
        rows.resize(rows.size() + std::size_t(lines - heightOf(rows) - heightOf(link)));
        append(rows, std::move(link));
    }
    rows.resize(std::min(rows.size(), std::size_t(lines)));
    return rows;
}

std::vector<Screen::Row> Screen::pageRows(int columns, int lines) {
    auto title = wrappedRows({page_.title}, columns);
    for (auto& row : title)
        row.text = Bold + row.text + Normal;
    std::vector<Row> typed;
    const auto input = "> " + encoding_.showable(page_.typed.value_or(""));
    if (page_.typed)
        typed.push_back({encoding_.encoded(input)});
    auto link = wholeRows(page_.link, columns);
    auto webLink = wholeRows(page_.webLink, columns);
    auto head = wrappedRows(page_.head, columns);
    auto keys = wrappedRows({page_.keys}, columns);
    auto said = wrappedRows({said_.begin(), said_.end()}, columns);

    int room = lines - heightOf(title) - heightOf(typed) - heightOf(link);
    // Of what is said last the most has to be there, the more so where it is a question.
    int spare = room - std::min(heightOf(said), page_.typed ? room : FewestLines);
    for (auto* part : {&webLink, &head, &keys}) {
        if (heightOf(*part) > spare)
            part->clear();
        spare -= heightOf(*part);
        room -= heightOf(*part);
    }
    if (heightOf(said) > room)
        said.erase(said.begin(), said.end() - std::max(room, 0));

    auto rows = std::move(title);
    append(rows, std::move(head));
    append(rows, std::move(said));
    cursor_ = {std::max(0, int(rows.size()) - 1), 0};
    rows.resize(std::size_t(std::max(int(rows.size()), lines - heightOf(typed) - heightOf(keys) -
                                                           heightOf(webLink) - heightOf(link))));
    if (page_.typed)
        cursor_ = {int(rows.size()), columnsOf(input)};
    for (auto* part : {&typed, &keys, &webLink, &link})
        append(rows, std::move(*part));
    return rows;
}

void Screen::draw() {
    if (!isThere_())
        return;
    const auto [columns, lines] = size();
    auto wanted = cover_.empty() ? pageRows(columns, lines) : coveredRows(columns, lines);
    std::string text;
    int y = 0;
    int drawnY = 0;
    for (std::size_t i = 0; i < wanted.size() && y < lines; ++i) {
        const auto& row = wanted[i];
        const bool isThere = i < drawn_.size() && drawnY == y && drawn_[i] == row;
        if (i < drawn_.size())
            drawnY += drawn_[i].height;
        if (!isThere) {
            for (int line = 0; line < row.height; ++line)
                text += moveTo(y + line, 0) + "\033[2K";
            text += moveTo(y, 0) + row.text;
        }
        y += row.height;
    }
    drawn_ = std::move(wanted);
    if (text.empty() && drawnCursor_ == cursor_)
        return;
    drawnCursor_ = cursor_;
    write(text + moveTo(cursor_.first, std::min(cursor_.second, columns - 1)));
}

void Screen::write(const std::string& text) {
    if (output_ >= 0 && isThere_() && !writeAll(output_, text))
        output_ = -1;
}

}  // namespace zelvo::platform
