#include "platform/qt/content/ShownText.h"

#include <QTextBoundaryFinder>
#include <limits>

namespace zelvo::platform {

namespace {

constexpr qsizetype longestLine = 1024;
constexpr qsizetype longestWord = 12;

bool isSeen(char32_t character) {
    switch (QChar::category(character)) {
        case QChar::Other_Control:
        case QChar::Other_Format:
        case QChar::Other_Surrogate:
        case QChar::Other_PrivateUse:
        case QChar::Other_NotAssigned:
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph:
            return false;
        case QChar::Separator_Space:
            return character == U' ';
        default:
            return true;
    }
}

QString escaped(const QString& text, qsizetype limit) {
    QString shown;
    for (qsizetype at = 0; at < text.size();) {
        if (shown.size() >= limit)
            return shown + u'…';
        bool isPair =
            at + 1 < text.size() && text[at].isHighSurrogate() && text[at + 1].isLowSurrogate();
        auto length = isPair ? 2 : 1;
        auto character =
            isPair ? QChar::surrogateToUcs4(text[at], text[at + 1]) : char32_t{text[at].unicode()};
        auto part = QStringView(text).mid(at, length);
        if (isSeen(character)) {
            shown += part;
        } else {
            for (auto byte : part.toUtf8())
                shown += QString("%%1").arg(static_cast<uchar>(byte), 2, 16, QChar('0')).toUpper();
        }
        at += length;
    }
    return shown;
}

}  // namespace

QString shownText(const std::string& text) {
    return escaped(QString::fromStdString(text), std::numeric_limits<qsizetype>::max());
}

QString shownLine(const std::string& text) {
    // No character takes more than four bytes.
    return escaped(QString::fromStdString(text.substr(0, 4 * longestLine + 4)), longestLine);
}

QString shownName(const std::string& name) {
    const auto text = shownLine(name);
    QString shown(u'\u2068');
    qsizetype inWord = 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    for (qsizetype from = 0, to = finder.toNextBoundary(); to >= 0;
         from = to, to = finder.toNextBoundary()) {
        const auto character = QStringView(text).mid(from, to - from);
        inWord = character == u" " ? 0 : inWord + 1;
        // A word that no line can take would push what comes after it out of sight.
        if (inWord > longestWord) {
            shown += u'\u200b';
            inWord = 1;
        }
        shown += character;
    }
    return shown + u'\u2069';
}

}  // namespace zelvo::platform
