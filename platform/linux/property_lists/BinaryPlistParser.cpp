#include <bit>
#include <cstdint>
#include <utility>

#include "platform/linux/base/TextEncoding.h"
#include "platform/linux/property_lists/PlistParsing.h"

namespace zelvo::platform {

namespace {

constexpr std::string_view magic = "bplist00";
constexpr std::size_t trailerSize = 32;

/// Dates count from 2001-01-01; these are the years 1 and 10000.
constexpr double epoch2001 = 978307200;
constexpr double earliestDate = -63113904000.0;
constexpr double latestDate = 252423993600.0;

/// Objects lie between the magic and a table of their offsets; containers name others by number.
class BinaryParser {
  public:
    explicit BinaryParser(std::span<const std::byte> bytes) : bytes_(bytes) {}

    ParsedPlist run() {
        PropertyList root;
        if (readTrailer() && parse(root_, root, 0))
            return {std::move(root), {}};
        return {std::nullopt, error_};
    }

  private:
    /// Kinds of objects: the upper half of their first byte.
    enum Kind : unsigned {
        Simple = 0x0,
        Integer = 0x1,
        Real = 0x2,
        Date = 0x3,
        Data = 0x4,
        Ascii = 0x5,
        Utf16 = 0x6,
        Utf8 = 0x7,
        Uid = 0x8,
        Array = 0xA,
        Dictionary = 0xD
    };

    struct Object {
        unsigned kind = 0;
        /// The lower half of the first byte.
        unsigned low = 0;
        /// Where its content begins.
        std::uint64_t at = 0;
    };

    bool fail(const char* what) {
        if (error_.empty())
            error_ = what;
        return false;
    }

    /// Big-endian; the caller has checked the range.
    std::uint64_t number(std::uint64_t at, std::uint64_t size) const {
        std::uint64_t value = 0;
        for (auto byte : bytes_.subspan(at, size))
            value = value << 8 | std::to_integer<std::uint64_t>(byte);
        return value;
    }

    bool readTrailer() {
        std::string_view text(reinterpret_cast<const char*>(bytes_.data()), bytes_.size());
        if (!text.starts_with(magic))
            return fail("an unknown version");
        if (bytes_.size() < magic.size() + trailerSize + 2)
            return fail("too short");
        auto trailer = bytes_.size() - trailerSize;
        offsetSize_ = number(trailer + 6, 1);
        referenceSize_ = number(trailer + 7, 1);
        objects_ = number(trailer + 8, 8);
        root_ = number(trailer + 16, 8);
        table_ = number(trailer + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8)
            return fail("malformed sizes");
        if (table_ <= magic.size() || table_ >= trailer ||
            objects_ > (trailer - table_) / offsetSize_)
            return fail("malformed object table");
        return true;
    }

    bool lies(std::uint64_t at, std::uint64_t count, std::uint64_t size) {
        bool isInside = at <= table_ && count <= (table_ - at) / size;
        return isInside || fail("an object beyond the objects");
    }

    bool locate(std::uint64_t reference, Object& object) {
        if (reference >= objects_)
            return fail("a reference beyond the table");
        auto at = number(table_ + reference * offsetSize_, offsetSize_);
        if (at < magic.size() || at >= table_)
            return fail("an offset beyond the objects");
        auto first = static_cast<unsigned>(number(at, 1));
        object = {first >> 4, first & 0xF, at + 1};
        return true;
    }

    /// The count of a sized object, whose content then begins behind it.
    bool readCount(Object& object, std::uint64_t& count) {
        count = object.low;
        if (object.low != 0xF)
            return true;
        if (!lies(object.at, 1, 1))
            return false;
        auto marker = number(object.at++, 1);
        auto size = std::uint64_t{1} << (marker & 0xF);
        if (marker >> 4 != Integer || size > 8)
            return fail("a malformed count");
        if (!lies(object.at, 1, size))
            return false;
        count = number(object.at, size);
        object.at += size;
        return true;
    }

    bool parse(std::uint64_t reference, PropertyList& value, int depth) {
        Object object;
        if (++values_ > PlistLimits::binaryValues)
            return fail("too many values");
        if (!locate(reference, object))
            return false;
        switch (object.kind) {
            case Simple:
                value = PropertyList(object.low == 9);
                return object.low == 8 || object.low == 9 || fail("an unknown object");
            case Integer:
                return parseInteger(object, value);
            case Real:
                return parseReal(object, value);
            case Date:
                return parseDate(object, value);
            case Data:
                return parseData(object, value);
            case Ascii:
            case Utf16:
            case Utf8: {
                std::string text;
                if (!parseString(object, text))
                    return false;
                value = PropertyList(std::move(text));
                return true;
            }
            case Uid:
                return parseUid(object, value);
            case Array:
            case Dictionary:
                if (depth == PlistLimits::nesting)
                    return fail("nested too deep");
                return object.kind == Array ? parseArray(object, value, depth + 1)
                                            : parseDictionary(object, value, depth + 1);
            default:
                return fail("an unknown object");
        }
    }

    bool parseInteger(const Object& object, PropertyList& value) {
        auto size = std::uint64_t{1} << object.low;
        if (object.low > 4 || !lies(object.at, 1, size))
            return fail("a malformed integer");
        // Sixteen bytes hold what has no place in eight signed ones.
        if (size == 16 && number(object.at, 8) != 0)
            return fail("an integer beyond 64 bits");
        auto bits = number(object.at, size);
        auto isNegative = static_cast<std::int64_t>(bits) < 0;
        value = size == 16 && isNegative ? PropertyList(static_cast<double>(bits))
                                         : PropertyList(static_cast<std::int64_t>(bits));
        return true;
    }

    bool parseReal(const Object& object, PropertyList& value) {
        auto size = std::uint64_t{1} << object.low;
        if ((size != 4 && size != 8) || !lies(object.at, 1, size))
            return fail("a malformed real");
        auto bits = number(object.at, size);
        value = PropertyList(size == 8 ? std::bit_cast<double>(bits)
                                       : static_cast<double>(std::bit_cast<float>(
                                             static_cast<std::uint32_t>(bits))));
        return true;
    }

    bool parseDate(const Object& object, PropertyList& value) {
        if (object.low != 3 || !lies(object.at, 1, 8))
            return fail("a malformed date");
        auto seconds = std::bit_cast<double>(number(object.at, 8));
        if (!(seconds >= earliestDate && seconds < latestDate))
            return fail("a date beyond all years");
        value = PropertyList(PropertyList::Date{epoch2001 + seconds});
        return true;
    }

    bool parseUid(const Object& object, PropertyList& value) {
        if (object.low > 3 || !lies(object.at, 1, object.low + 1))
            return fail("a malformed UID");
        auto uid = static_cast<std::int64_t>(number(object.at, object.low + 1));
        value = PropertyList(PropertyList::Dictionary{{"CF$UID", uid}});
        return true;
    }

    /// Few bytes could stand for much content, each object being copied wherever it is named.
    bool content(Object object, std::uint64_t size, std::span<const std::byte>& bytes) {
        std::uint64_t count = 0;
        if (!readCount(object, count) || !lies(object.at, count, size))
            return false;
        bytes = bytes_.subspan(object.at, count * size);
        contentBytes_ += bytes.size();
        return contentBytes_ <= PlistLimits::binaryCopies * PlistLimits::bytes ||
               fail("too much content");
    }

    bool parseData(const Object& object, PropertyList& value) {
        std::span<const std::byte> bytes;
        if (!content(object, 1, bytes))
            return false;
        value = PropertyList(PropertyList::Data(bytes.begin(), bytes.end()));
        return true;
    }

    bool parseString(const Object& object, std::string& text) {
        std::span<const std::byte> bytes;
        if (!content(object, object.kind == Utf16 ? 2 : 1, bytes))
            return false;
        if (object.kind == Utf16) {
            auto decoded = decodeUtf16(bytes, true);
            if (!decoded)
                return fail("a string that is not UTF-16");
            text = std::move(*decoded);
            return true;
        }
        text.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        return isUtf8(text) || fail("a string that is not UTF-8");
    }

    /// The numbers of a container's objects begin at the returned place.
    bool references(Object object, std::uint64_t each, std::uint64_t& count, std::uint64_t& at) {
        if (!readCount(object, count) || !lies(object.at, count, each * referenceSize_))
            return false;
        at = object.at;
        return true;
    }

    std::uint64_t reference(std::uint64_t at, std::uint64_t index) const {
        return number(at + index * referenceSize_, referenceSize_);
    }

    bool parseArray(const Object& object, PropertyList& value, int depth) {
        std::uint64_t count = 0;
        std::uint64_t at = 0;
        if (!references(object, 1, count, at))
            return false;
        PropertyList::Array elements;
        for (std::uint64_t index = 0; index < count; ++index) {
            elements.emplace_back();
            if (!parse(reference(at, index), elements.back(), depth))
                return false;
        }
        value = PropertyList(std::move(elements));
        return true;
    }

    bool parseDictionary(const Object& object, PropertyList& value, int depth) {
        std::uint64_t count = 0;
        std::uint64_t at = 0;
        if (!references(object, 2, count, at))
            return false;
        PropertyList::Dictionary members;
        for (std::uint64_t index = 0; index < count; ++index) {
            Object keyObject;
            std::string key;
            PropertyList member;
            if (!locate(reference(at, index), keyObject))
                return false;
            if (keyObject.kind < Ascii || keyObject.kind > Utf8)
                return fail("a key that is no string");
            if (!parseString(keyObject, key) || !parse(reference(at, count + index), member, depth))
                return false;
            members.insert_or_assign(std::move(key), std::move(member));
        }
        value = PropertyList(std::move(members));
        return true;
    }

    std::span<const std::byte> bytes_;
    std::uint64_t offsetSize_ = 0;
    std::uint64_t referenceSize_ = 0;
    std::uint64_t objects_ = 0;
    std::uint64_t root_ = 0;
    std::uint64_t table_ = 0;
    std::size_t values_ = 0;
    std::size_t contentBytes_ = 0;
    std::string error_;
};

}  // namespace

ParsedPlist parseBinaryPlist(std::span<const std::byte> bytes) {
    return BinaryParser(bytes).run();
}

}  // namespace zelvo::platform
