#include "common/simd/level.hpp"

#include <algorithm>

namespace quen::common::simd {

bool IsAvailable(Level level) {
  const bool avx2 =
      static_cast<bool>(__builtin_cpu_supports("avx2")) && static_cast<bool>(__builtin_cpu_supports("fma"));
  switch (level) {
    case Level::kPlain:
      return true;
    case Level::kAvx2:
      return avx2;
    case Level::kAvx512:
      return avx2 && static_cast<bool>(__builtin_cpu_supports("avx512f")) &&
             static_cast<bool>(__builtin_cpu_supports("avx512dq")) &&
             static_cast<bool>(__builtin_cpu_supports("avx512vl")) &&
             static_cast<bool>(__builtin_cpu_supports("avx512bw"));
  }
  return false;
}

Level Highest() {
  return IsAvailable(Level::kAvx512) ? Level::kAvx512 : IsAvailable(Level::kAvx2) ? Level::kAvx2 : Level::kPlain;
}

Choice Choose(std::string_view wish, Level highest) {
  if (wish.empty()) return {highest, ""};
  const auto* const wished = std::ranges::find(kLevels, wish, Name);
  if (wished == kLevels.end()) {
    return {highest,
            "QUEN_SIMD: expected plain, avx2 or avx512, found " + std::string(wish) + "; running " + Name(highest)};
  }
  if (*wished > highest) {
    return {highest, "QUEN_SIMD: this processor does not have " + std::string(wish) + "; running " + Name(highest)};
  }
  return {*wished, ""};
}

}  // namespace quen::common::simd
