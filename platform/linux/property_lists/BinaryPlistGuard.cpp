#include "platform/linux/property_lists/BinaryPlistGuard.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <string_view>

namespace zelvo::platform {

namespace {

constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;

/// Seconds between 2001-01-01 and the years 1 and 10000.
constexpr double earliestDate = -63113904000.0;
constexpr double latestDate = 252423993600.0;

class Guard {
  public:
    Guard(std::span<const std::byte> bytes, const BinaryPlistLimits& limits)
        : bytes_(bytes), limits_(limits) {}

    std::string run() {
        if (readTrailer())
            visit(rootObject_, 0);
        return error_;
    }

  private:
    bool fail(std::string_view what) {
        if (error_.empty())
            error_ = what;
        return false;
    }

    /// Big-endian; the caller has checked the range.
    std::uint64_t number(std::size_t at, std::size_t size) const {
        std::uint64_t value = 0;
        for (std::size_t byte = 0; byte < size; ++byte)
            value = value << 8 | std::to_integer<std::uint64_t>(bytes_[at + byte]);
        return value;
    }

    bool readTrailer() {
        if (bytes_.size() < headerSize + trailerSize + 2)
            return fail("too short");
        auto trailer = bytes_.size() - trailerSize;
        offsetSize_ = number(trailer + 6, 1);
        referenceSize_ = number(trailer + 7, 1);
        objects_ = number(trailer + 8, 8);
        rootObject_ = number(trailer + 16, 8);
        table_ = number(trailer + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8)
            return fail("malformed sizes");
        if (table_ < headerSize + 1 || table_ >= trailer || objects_ == 0 ||
            objects_ > (trailer - table_) / offsetSize_ || rootObject_ >= objects_)
            return fail("malformed object table");
        return true;
    }

    bool inObjects(std::uint64_t at, std::uint64_t size) const {
        return at <= table_ && size <= table_ - at;
    }

    /// The count of a sized object, after its marker byte; `at` moves to the content.
    bool readCount(std::uint64_t& at, std::uint64_t low, std::uint64_t& count) {
        count = low;
        if (low != 0xF)
            return true;
        if (!inObjects(at, 1))
            return fail("a count beyond the objects");
        auto marker = number(at++, 1);
        std::uint64_t size = std::uint64_t{1} << (marker & 0xF);
        if (marker >> 4 != 1 || size > 8 || !inObjects(at, size))
            return fail("a malformed count");
        count = number(at, size);
        at += size;
        return true;
    }

    bool content(std::uint64_t at, std::uint64_t count, std::uint64_t size) {
        if (count > table_ || !inObjects(at, count * size))
            return fail("an object beyond the objects");
        contentBytes_ += count * size;
        return contentBytes_ <= limits_.contentBytes || fail("too much content");
    }

    bool visit(std::uint64_t object, int depth) {
        if (object >= objects_)
            return fail("a reference beyond the table");
        if (++values_ > limits_.values)
            return fail("too many values");
        auto at = number(table_ + object * offsetSize_, offsetSize_);
        if (at < headerSize || !inObjects(at, 1))
            return fail("an offset beyond the objects");
        auto marker = number(at++, 1);
        auto low = marker & 0xF;
        switch (marker >> 4) {
            case 0x0:
                return low == 8 || low == 9 || fail("an unknown object");
            case 0x1:
                return low <= 4 ? content(at, 1, std::uint64_t{1} << low) && integer(at, low)
                                : fail("an unknown object");
            case 0x2:
                return low == 2 || low == 3 ? content(at, 1, std::uint64_t{1} << low)
                                            : fail("an unknown object");
            case 0x3:
                return low == 3 ? content(at, 1, 8) && date(at) : fail("an unknown object");
            case 0x4:
            case 0x5:
            case 0x6:
            case 0x7: {
                std::uint64_t count = 0;
                bool isWide = marker >> 4 == 0x6;
                return readCount(at, low, count) && content(at, count, isWide ? 2 : 1) &&
                       (marker >> 4 == 0x4 || text(at, count, isWide ? 2 : 1));
            }
            case 0x8:
                return low <= 3 ? content(at, 1, low + 1) : fail("an unknown object");
            case 0xA:
                return container(at, low, depth, false);
            case 0xD:
                return container(at, low, depth, true);
            default:
                return fail("an unknown object");
        }
    }

    bool integer(std::uint64_t at, std::uint64_t low) {
        return low < 4 || number(at, 8) == 0 || fail("an integer beyond 64 bits");
    }

    bool date(std::uint64_t at) {
        auto seconds = std::bit_cast<double>(number(at, 8));
        return (seconds >= earliestDate && seconds < latestDate) || fail("a date beyond all years");
    }

    /// libplist takes text for ended by a NUL, and aborts on a key that has one inside.
    bool text(std::uint64_t at, std::uint64_t count, std::uint64_t size) {
        for (std::uint64_t unit = 0; unit < count; ++unit) {
            if (number(at + unit * size, size) == 0)
                return fail("a NUL character");
        }
        return true;
    }

    bool container(std::uint64_t at, std::uint64_t low, int depth, bool isDictionary) {
        if (depth >= limits_.nesting)
            return fail("nested too deep");
        std::uint64_t count = 0;
        if (!readCount(at, low, count))
            return false;
        auto references = isDictionary ? count * 2 : count;
        if (count > table_ || !inObjects(at, references * referenceSize_))
            return fail("an object beyond the objects");
        for (std::uint64_t index = 0; index < references; ++index) {
            auto object = number(at + index * referenceSize_, referenceSize_);
            if (isDictionary && index < count && !isString(object))
                return fail("a key that is no string");
            if (!visit(object, depth + 1))
                return false;
        }
        return true;
    }

    bool isString(std::uint64_t object) const {
        if (object >= objects_)
            return false;
        auto at = number(table_ + object * offsetSize_, offsetSize_);
        if (at < headerSize || !inObjects(at, 1))
            return false;
        auto kind = number(at, 1) >> 4;
        return kind == 0x5 || kind == 0x6;
    }

    std::span<const std::byte> bytes_;
    BinaryPlistLimits limits_;
    std::uint64_t offsetSize_ = 0;
    std::uint64_t referenceSize_ = 0;
    std::uint64_t objects_ = 0;
    std::uint64_t rootObject_ = 0;
    std::uint64_t table_ = 0;
    std::size_t values_ = 0;
    std::size_t contentBytes_ = 0;
    std::string error_;
};

}  // namespace

std::string refuseBinaryPlist(std::span<const std::byte> bytes, const BinaryPlistLimits& limits) {
    constexpr std::string_view magic = "bplist00";
    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!text.starts_with(magic))
        return "an unknown version";
    return Guard(bytes, limits).run();
}

}  // namespace zelvo::platform
