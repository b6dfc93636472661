#include "opener/FactsPrinter.h"

#include <cstdio>

namespace zelvo::opener {

namespace {

std::string keysyms(const std::vector<std::uint32_t>& keys) {
    std::string text;
    for (const auto key : keys) {
        char number[16];
        std::snprintf(number, sizeof number, " 0x%04X", key);
        text += number;
    }
    return text;
}

const char* nameOf(HostCorner::Place place) {
    switch (place) {
        case HostCorner::Place::TopLeft:
            return "top left";
        case HostCorner::Place::TopRight:
            return "top right";
        case HostCorner::Place::BottomLeft:
            return "bottom left";
        case HostCorner::Place::BottomRight:
            break;
    }
    return "bottom right";
}

}  // namespace

std::string printed(const HostFacts& facts) {
    std::string text = "Name: " + facts.name + "\nAddress: " + facts.address +
                       "\nPort: " + std::to_string(facts.port) +
                       "\nAddress proven: " + (facts.addressIsProven ? "yes" : "no") + "\n";
    if (!facts.relay.empty())
        text += "Relay: " + facts.relay + "\n";
    if (!facts.layout.empty())
        text += "Keyboard layout: " + facts.layout + "\n";
    if (!facts.osVersion.empty())
        text += "System version: " + facts.osVersion + "\n";
    for (const auto& [number, keys] : facts.hotKeys)
        text += "Hot key " + std::to_string(number) + ":" + keysyms(keys) + "\n";
    for (const auto& [place, action, modifiers] : facts.corners)
        text += std::string("Corner ") + nameOf(place) + ": " + std::to_string(action) +
                keysyms(modifiers) + "\n";
    return text;
}

}  // namespace zelvo::opener
