#include "platform/linux/desktop/InputSourceId.h"

#include <sstream>
#include <vector>

#include "platform/linux/base/FileReading.h"

namespace zelvo::platform {

namespace {

std::vector<std::string> items(const std::string& list) {
    std::vector<std::string> result;
    std::istringstream stream(list);
    for (std::string item; std::getline(stream, item, ',');)
        result.push_back(trimmed(item));
    return result;
}

}  // namespace

std::optional<std::string> inputSourceId(const std::string& layouts, const std::string& variants,
                                         std::size_t index) {
    auto names = items(layouts);
    if (index >= names.size())
        index = 0;
    if (names.empty() || names[index].empty())
        return std::nullopt;
    auto kinds = items(variants);
    auto hasVariant = index < kinds.size() && !kinds[index].empty();
    return hasVariant ? names[index] + "+" + kinds[index] : names[index];
}

}  // namespace zelvo::platform
