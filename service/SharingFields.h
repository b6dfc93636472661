#pragma once

#include <array>
#include <string_view>

namespace zelvo::service {

/// The facts about a host that are kept under a link, by their name in requests and replies.
inline constexpr std::array<std::string_view, 9> FactNames = {
    "ComputerName", "LocalHostname",      "vncPort",       "IPAddress", "Port",
    "MacAddress",   "LastKeyboardLocale", "MappedService", "HotKeys"};

inline constexpr std::string_view SettingsName = "HotKeys";

/// What a host kept from an earlier launch. It may be any text, and whatever it is the host needs a
/// link: one that cannot be ours counts as none.
inline constexpr std::string_view KeptLinkName = "permanentSharedLink";

inline constexpr std::array<std::string_view, 10> CreateNames = {
    "ComputerName", "LocalHostname",      "vncPort",       "IPAddress", "Port",
    "MacAddress",   "LastKeyboardLocale", "MappedService", "HotKeys",   KeptLinkName};

inline constexpr std::array<std::string_view, 11> UpdateNames = {
    "ComputerName",      "LocalHostname",      "vncPort",       "IPAddress", "Port",
    "MacAddress",        "LastKeyboardLocale", "MappedService", "HotKeys",   "sharedLink",
    "availabilityStatus"};

inline constexpr std::array<std::string_view, 1> LinkNames = {"link"};

/// The relay that a host would like to have again.
inline constexpr std::array<std::string_view, 1> RelayNames = {"Relay"};

/// Whether the text can be the value of the field. Names, the keyboard layout and the hardware
/// address may be empty, as a host may not know them; links are any text, for whether a link is
/// known is the store's to say.
bool isLegalValue(std::string_view field, std::string_view value);

}  // namespace zelvo::service
