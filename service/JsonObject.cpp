#include "service/JsonObject.h"

#include <cstddef>
#include <nlohmann/json.hpp>

namespace zelvo::service {
namespace {

/// Watches the parser without building what it reads; false ends the parsing.
struct ObjectOfLimitedDepth : nlohmann::json_sax<nlohmann::json> {
    bool null() override { return isInside(); }
    bool boolean(bool) override { return isInside(); }
    bool number_integer(number_integer_t) override { return isInside(); }
    bool number_unsigned(number_unsigned_t) override { return isInside(); }
    bool number_float(number_float_t, const string_t&) override { return isInside(); }
    bool string(string_t&) override { return isInside(); }
    bool binary(binary_t&) override { return false; }
    bool key(string_t&) override { return true; }
    bool start_object(std::size_t) override { return ++depth_ <= DeepestNesting; }
    bool end_object() override { return leave(); }
    bool start_array(std::size_t) override { return isInside() && ++depth_ <= DeepestNesting; }
    bool end_array() override { return leave(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override {
        return false;
    }

  private:
    static constexpr int DeepestNesting = 64;

    bool isInside() const { return depth_ > 0; }
    bool leave() {
        --depth_;
        return true;
    }

    int depth_ = 0;
};

}  // namespace

bool isJsonObject(std::string_view text) {
    // The parser takes a byte order mark for a blank.
    ObjectOfLimitedDepth watch;
    return !text.starts_with("\xEF") && nlohmann::json::sax_parse(text, &watch);
}

}  // namespace zelvo::service
