#include "platform/terminal/Wrapping.h"

#include <QString>
#include <algorithm>
#include <cwchar>

namespace zelvo::platform {

namespace {

struct Line {
    QString text;
    int columns = 0;
    /// Where it may be broken: characters, and their columns.
    qsizetype breakAt = 0;
    int breakColumns = 0;
};

void trim(QString& text) {
    while (text.endsWith(' '))
        text.chop(1);
}

/// Hands on what comes before the last place to break, and keeps the rest.
std::string broken(Line& line) {
    const bool hasPlace = line.breakAt > 0;
    QString before = hasPlace ? line.text.left(line.breakAt) : line.text;
    line = hasPlace ? Line{line.text.mid(line.breakAt), line.columns - line.breakColumns} : Line{};
    trim(before);
    return before.toStdString();
}

int widthOf(char32_t character) {
    return ::wcwidth(static_cast<wchar_t>(character));
}

}  // namespace

std::vector<std::string> wrapped(const std::string& text, int columns) {
    std::vector<std::string> lines;
    Line line;
    for (char32_t character : QString::fromStdString(text).toStdU32String()) {
        if (character == '\n') {
            lines.push_back(line.text.toStdString());
            line = {};
            continue;
        }
        if (widthOf(character) < 0)
            character = '?';
        const int width = widthOf(character);
        if (line.columns + width > columns) {
            const bool isSpace = character == ' ';
            if (isSpace)
                line.breakAt = 0;
            lines.push_back(broken(line));
            if (isSpace)
                continue;
        }
        line.text += QString::fromUcs4(&character, 1);
        line.columns += width;
        if (character == ' ' || width == 2) {
            line.breakAt = line.text.size();
            line.breakColumns = line.columns;
        }
    }
    lines.push_back(line.text.toStdString());
    return lines;
}

int columnsOf(const std::string& text) {
    int columns = 0;
    for (char32_t character : QString::fromStdString(text).toStdU32String())
        columns += std::max(widthOf(character), 0);
    return columns;
}

}  // namespace zelvo::platform
