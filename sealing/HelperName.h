#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zelvo::sealing {

inline constexpr std::size_t longestName = 40;          ///< characters
inline constexpr std::size_t longestNameInBytes = 160;  ///< in UTF-8

/// Whether a stranger's name may stand in a sentence of ours: UTF-8, 1 to 40 characters that are
/// seen and stay where they are put. No controls, nothing that turns the direction of writing or is
/// invisible, no more than two marks on a letter, and spaces only as single ones between words.
bool isHelperName(std::string_view text);
/// The nearest name to what somebody typed, which is in NFC already; empty where nothing of it can
/// stay.
std::string asHelperName(std::string_view text);

}  // namespace zelvo::sealing
