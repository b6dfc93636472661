#include "platform/linux/property_lists/XmlPlistWriter.h"

#include <QDateTime>
#include <QStringDecoder>
#include <QTimeZone>
#include <QXmlStreamWriter>
#include <array>
#include <charconv>
#include <cmath>

#include "platform/linux/base/TextEncoding.h"

namespace zelvo::platform {

namespace {

// QString::fromUtf8 takes a byte order mark in front for a mark of its own, and drops it.
QString qString(std::string_view text) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom |
                                                     QStringDecoder::Flag::Stateless);
    return decoder(QByteArrayView(text.data(), static_cast<qsizetype>(text.size())));
}

template <typename Number>
QString decimal(Number number) {
    std::array<char, 64> digits;
    auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    return QString::fromLatin1(digits.data(), end - digits.data());
}

class XmlWriter {
  public:
    explicit XmlWriter(QByteArray& xml) : writer_(&xml) {}

    bool document(const PropertyList::Dictionary& root) {
        writer_.setAutoFormatting(true);
        writer_.setAutoFormattingIndent(-1);
        writer_.writeStartDocument();
        writer_.writeDTD(
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">");
        writer_.writeStartElement("plist");
        writer_.writeAttribute("version", "1.0");
        bool good = dictionary(root);
        writer_.writeEndDocument();
        return good && !writer_.hasError();
    }

  private:
    bool dictionary(const PropertyList::Dictionary& members) {
        bool good = true;
        writer_.writeStartElement("dict");
        for (const auto& [key, member] : members) {
            good = good && isXmlText(key) && key.find('\r') == key.npos;
            writer_.writeTextElement("key", qString(key));
            good = value(member) && good;
        }
        writer_.writeEndElement();
        return good;
    }

    bool array(const PropertyList::Array& elements) {
        bool good = true;
        writer_.writeStartElement("array");
        for (const auto& element : elements)
            good = value(element) && good;
        writer_.writeEndElement();
        return good;
    }

    bool value(const PropertyList& value) {
        if (const auto* members = value.dictionary())
            return dictionary(*members);
        if (const auto* elements = value.array())
            return array(*elements);
        if (const auto* text = value.string())
            string(*text);
        else if (const auto* bytes = value.data())
            data(reinterpret_cast<const char*>(bytes->data()), bytes->size());
        else if (const auto* number = value.integer())
            writer_.writeTextElement("integer", decimal(*number));
        else if (const auto* real = value.real())
            writer_.writeTextElement("real", decimal(*real));
        else if (const auto* date = value.date())
            writer_.writeTextElement(
                "date",
                QDateTime::fromSecsSinceEpoch(
                    static_cast<qint64>(std::floor(date->secondsSince1970)), QTimeZone::utc())
                    .toString(u"yyyy-MM-ddTHH:mm:ssZ"));
        else
            writer_.writeEmptyElement(value.booleanReading() ? "true" : "false");
        return true;
    }

    void string(const std::string& text) {
        if (!isXmlText(text))
            return data(text.data(), text.size());
        writer_.writeStartElement("string");
        const auto lines = qString(text).split('\r');
        for (qsizetype line = 0; line < lines.size(); ++line) {
            // As itself it would be read as a line feed.
            if (line > 0)
                writer_.writeEntityReference("#13");
            writer_.writeCharacters(lines[line]);
        }
        writer_.writeEndElement();
    }

    void data(const char* bytes, std::size_t size) {
        auto raw = QByteArray::fromRawData(bytes, static_cast<qsizetype>(size));
        writer_.writeTextElement("data", QString::fromLatin1(raw.toBase64()));
    }

    QXmlStreamWriter writer_;
};

}  // namespace

bool isXmlText(std::string_view text) {
    while (!text.empty()) {
        auto character = firstCodePoint(text);
        if (!character || !isXmlCharacter(character->value))
            return false;
        text.remove_prefix(character->length);
    }
    return true;
}

std::optional<QByteArray> writeXmlPlist(const PropertyList::Dictionary& dictionary) {
    QByteArray xml;
    return XmlWriter(xml).document(dictionary) ? std::optional(xml) : std::nullopt;
}

}  // namespace zelvo::platform
