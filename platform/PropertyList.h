#pragma once

#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace zelvo::platform {

/// One value of a property list.
class PropertyList {
  public:
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList>;
    using Data = std::vector<std::byte>;
    struct Date {
        double secondsSince1970 = 0;
        friend bool operator==(const Date&, const Date&) = default;
    };

    PropertyList() : value_(std::string()) {}
    PropertyList(std::string text) : value_(std::move(text)) {}
    PropertyList(const char* text) : value_(std::string(text)) {}
    PropertyList(bool flag) : value_(flag) {}
    PropertyList(int number) : value_(std::int64_t{number}) {}
    PropertyList(std::int64_t number) : value_(number) {}
    PropertyList(double number) : value_(number) {}
    PropertyList(Date date) : value_(date) {}
    PropertyList(Data data) : value_(std::move(data)) {}
    PropertyList(Array array) : value_(std::move(array)) {}
    PropertyList(Dictionary dictionary) : value_(std::move(dictionary)) {}

    const std::string* string() const { return std::get_if<std::string>(&value_); }
    const std::int64_t* integer() const { return std::get_if<std::int64_t>(&value_); }
    const double* real() const { return std::get_if<double>(&value_); }
    const bool* boolean() const { return std::get_if<bool>(&value_); }
    const Date* date() const { return std::get_if<Date>(&value_); }
    const Data* data() const { return std::get_if<Data>(&value_); }
    const Array* array() const { return std::get_if<Array>(&value_); }
    const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }
    Array* array() { return std::get_if<Array>(&value_); }
    Dictionary* dictionary() { return std::get_if<Dictionary>(&value_); }

    /// The member of a dictionary; null when this is no dictionary or has no such member.
    const PropertyList* find(std::string_view key) const {
        const auto* members = dictionary();
        if (!members)
            return nullptr;
        auto found = members->find(std::string(key));
        return found == members->end() ? nullptr : &found->second;
    }

    /// The integer reading of a number, a boolean (0 or 1) or a string (its leading decimal number,
    /// 0 when it has none); out of range is the nearest 64-bit value. Other kinds have none.
    std::optional<std::int64_t> integerReading() const {
        if (const auto* number = integer())
            return *number;
        if (const auto* flag = boolean())
            return *flag ? 1 : 0;
        if (const auto* number = real())
            return saturated(*number);
        if (const auto* text = string())
            return leadingNumber(*text);
        return std::nullopt;
    }

    /// The 32-bit integer reading: the low 32 bits of a number, the nearest 32-bit value of a
    /// string; 0 for a kind without an integer reading.
    std::int32_t int32Reading() const {
        auto reading = integerReading().value_or(0);
        if (string()) {
            constexpr std::int64_t low = std::numeric_limits<std::int32_t>::min();
            constexpr std::int64_t high = std::numeric_limits<std::int32_t>::max();
            reading = reading < low ? low : reading > high ? high : reading;
        }
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(reading));
    }

    /// The boolean reading: a boolean or number is true when it is not 0, a string when it begins
    /// with Y, y, T, t or a digit from 1 to 9. Other kinds are false.
    bool booleanReading() const {
        if (const auto* flag = boolean())
            return *flag;
        if (const auto* number = integer())
            return *number != 0;
        if (const auto* number = real())
            return *number != 0;
        if (const auto* text = string())
            return !text->empty() &&
                   std::string_view("YyTt123456789").find(text->front()) != std::string_view::npos;
        return false;
    }

    friend bool operator==(const PropertyList& a, const PropertyList& b) {
        return a.value_ == b.value_;
    }

  private:
    static std::int64_t saturated(double number) {
        constexpr double limit = 9223372036854775808.0;  // 2^63
        if (std::isnan(number))
            return 0;
        if (number >= limit)
            return std::numeric_limits<std::int64_t>::max();
        if (number < -limit)
            return std::numeric_limits<std::int64_t>::min();
        return static_cast<std::int64_t>(number);
    }

    static std::int64_t leadingNumber(std::string_view text) {
        std::size_t at = 0;
        while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])))
            ++at;
        bool negative = at < text.size() && text[at] == '-';
        if (at < text.size() && (text[at] == '-' || text[at] == '+'))
            ++at;
        std::uint64_t limit = std::uint64_t{1} << 63;
        if (!negative)
            --limit;
        std::uint64_t magnitude = 0;
        for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
            auto digit = static_cast<std::uint64_t>(text[at] - '0');
            if (magnitude > (limit - digit) / 10) {
                magnitude = limit;
                break;
            }
            magnitude = magnitude * 10 + digit;
        }
        return negative ? static_cast<std::int64_t>(~magnitude + 1)
                        : static_cast<std::int64_t>(magnitude);
    }

    std::variant<std::string, std::int64_t, double, bool, Date, Data, Array, Dictionary> value_;
};

}  // namespace zelvo::platform
