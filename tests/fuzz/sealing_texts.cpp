// Links and names: what is taken is taken as it stands, and can be written again.

#include <cstdint>
#include <cstdlib>

#include "sealing/HelperName.h"
#include "sealing/ShareLink.h"

using namespace zelvo::sealing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto read = parseLink(text);
    if (const auto* link = std::get_if<ShareLink>(&read); link && linkText(*link) != text)
        std::abort();
    const auto name = asHelperName(text);
    if ((!name.empty() && !isHelperName(name)) || (isHelperName(text) && name != text))
        std::abort();
    return 0;
}
