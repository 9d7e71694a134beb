#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// @file
/// Check sums of a FITS unit whose data do not stand in memory.

namespace quen::workbench {

inline constexpr std::size_t kFitsBlock = 2880;  ///< bytes of a file come in so many
inline constexpr std::size_t kFitsCard = 80;     ///< bytes of a line of a header

/// Adds big-endian words of 32 bits in ones' complement, as the FITS standard's checksums do.
/// @param bytes  a whole number of words
std::uint32_t AddWords(std::uint32_t sum, std::string_view bytes);

/// Sets the value of a card that is there, in the columns of a fixed format.
void SetCard(std::string& header, std::string_view keyword, const std::string& value);

/// Sets both check sums of a unit, whose cards are there.
/// @param data_sum  AddWords over its data
void SetCheckSum(std::string& header, std::uint32_t data_sum);

}  // namespace quen::workbench
