#include "service/JsonObject.h"

#include <algorithm>
#include <cstddef>

namespace zelvo::service {
namespace {

constexpr int DeepestNesting = 64;

class Reader {
  public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool isOneObject() {
        skipSpace();
        bool good = next() == '{' && value(0);
        skipSpace();
        return good && text_.empty();
    }

  private:
    char next() const { return text_.empty() ? '\0' : text_.front(); }

    bool take(std::string_view token) {
        if (!text_.starts_with(token))
            return false;
        text_.remove_prefix(token.size());
        return true;
    }

    void skipSpace() {
        auto end = text_.find_first_not_of(" \t\r\n");
        text_.remove_prefix(end == std::string_view::npos ? text_.size() : end);
    }

    bool value(int depth) {
        switch (next()) {
            case '{':
                return list('}', depth);
            case '[':
                return list(']', depth);
            case '"':
                return string();
            default:
                return take("true") || take("false") || take("null") || number();
        }
    }

    /// The members of an object when it closes with a brace, else the elements of an array.
    bool list(char close, int depth) {
        if (depth == DeepestNesting)
            return false;
        text_.remove_prefix(1);
        skipSpace();
        if (take({&close, 1}))
            return true;
        do {
            skipSpace();
            if (close == '}') {
                if (!string())
                    return false;
                skipSpace();
                if (!take(":"))
                    return false;
                skipSpace();
            }
            if (!value(depth + 1))
                return false;
            skipSpace();
        } while (take(","));
        return take({&close, 1});
    }

    bool string() {
        if (!take("\""))
            return false;
        while (!text_.empty()) {
            char c = text_.front();
            text_.remove_prefix(1);
            if (c == '"')
                return true;
            if (static_cast<unsigned char>(c) < 0x20 || (c == '\\' && !escape()))
                return false;
        }
        return false;
    }

    bool escape() {
        if (take("u")) {
            auto digits = text_.substr(0, 4);
            if (digits.size() < 4 ||
                digits.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
                return false;
            text_.remove_prefix(4);
            return true;
        }
        if (text_.empty() || std::string_view("\"\\/bfnrt").find(next()) == std::string_view::npos)
            return false;
        text_.remove_prefix(1);
        return true;
    }

    bool digits() {
        auto end = std::min(text_.find_first_not_of("0123456789"), text_.size());
        text_.remove_prefix(end);
        return end > 0;
    }

    bool number() {
        take("-");
        if (!take("0") && !digits())
            return false;
        if (take(".") && !digits())
            return false;
        if (!take("e") && !take("E"))
            return true;
        if (!take("+"))
            take("-");
        return digits();
    }

    std::string_view text_;
};

}  // namespace

bool isJsonObject(std::string_view text) {
    return Reader(text).isOneObject();
}

}  // namespace zelvo::service
