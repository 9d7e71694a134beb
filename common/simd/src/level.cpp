#include "common/simd/level.hpp"

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

Level Best() {
  static const Level best = IsAvailable(Level::kAvx512) ? Level::kAvx512
                            : IsAvailable(Level::kAvx2) ? Level::kAvx2
                                                        : Level::kPlain;
  return best;
}

const char* Name(Level level) {
  switch (level) {
    case Level::kPlain:
      return "plain";
    case Level::kAvx2:
      return "avx2";
    case Level::kAvx512:
      return "avx512";
  }
  return "";
}

}  // namespace quen::common::simd
