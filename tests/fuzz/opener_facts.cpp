// What somebody says in the sharing service's place to who opens a link.

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "opener/facts/FactsReply.h"
#include "sealing/HelperName.h"

using namespace zelvo::opener;

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

bool isShort(const std::string& text) {
    return text.size() <= 128 &&
           std::ranges::none_of(text, [](unsigned char c) { return c <= ' '; });
}

bool areKeys(const std::vector<std::uint32_t>& keys) {
    return keys.size() <= 5 && std::ranges::none_of(keys, [](auto key) { return key == 0; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto answer = readFacts(std::as_bytes(std::span(data, size)));
    const auto* facts = std::get_if<HostFacts>(&answer);
    if (!facts)
        return 0;
    check(zelvo::sealing::isHelperName(facts->name));
    check(facts->port > 0 && facts->address.size() <= 15);
    check(facts->relay.find_first_of(" /@?#\\\r\n") == std::string::npos);
    check(isShort(facts->layout) && isShort(facts->osVersion));
    check(facts->hotKeys.size() <= 5 && facts->corners.size() <= 4);
    for (const auto& hotKey : facts->hotKeys)
        check(!hotKey.keys.empty() && areKeys(hotKey.keys));
    for (const auto& corner : facts->corners)
        check(areKeys(corner.modifiers));
    return 0;
}
