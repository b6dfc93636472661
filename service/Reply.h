#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>

#include "service/StatusCode.h"

namespace zelvo::service {

/// What the service answers: a dictionary that always has the integer "StatusCode".
using Reply = std::map<std::string, std::variant<std::int64_t, std::string>, std::less<>>;

/// A reply of nothing but success.
inline Reply success() {
    return {{"StatusCode", std::int64_t{0}}};
}

/// A refusal. "Message" says for people what is wrong, "Field" in which field, where it is in one.
inline Reply refusal(StatusCode code, std::string_view field = {}) {
    Reply reply{{"StatusCode", std::int64_t{static_cast<int>(code)}}, {"Message", describe(code)}};
    if (!field.empty())
        reply.emplace("Field", std::string(field));
    return reply;
}

}  // namespace zelvo::service
