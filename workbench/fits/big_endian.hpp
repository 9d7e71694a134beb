#pragma once

#include <algorithm>
#include <array>
#include <bit>

namespace quen::workbench {

/// Appends a number as FITS has it, the highest byte first.
/// @param bytes  a text or a vector of bytes
template <typename T, typename Bytes>
void AppendBigEndian(T value, Bytes& bytes) {
  auto raw = std::bit_cast<std::array<char, sizeof(T)>>(value);
  std::ranges::reverse(raw);
  bytes.insert(bytes.end(), raw.begin(), raw.end());
}

}  // namespace quen::workbench
