#pragma once

#include <cstdint>
#include <string_view>

namespace quen::workbench {

inline constexpr std::uint64_t kFirstCheckSum = 0xCBF29CE484222325U;

/// The check sum FNV-1a of 64 bits, which goes on from that of what stands before. One changed byte always changes it:
/// each step is a bijection of the sum.
constexpr std::uint64_t CheckSum(std::string_view bytes, std::uint64_t sum = kFirstCheckSum) {
  for (const char byte : bytes) sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
  return sum;
}

}  // namespace quen::workbench
