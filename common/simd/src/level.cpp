#include "common/simd/level.hpp"

namespace quen::common::simd {

bool IsAvailable(Level level) {
  const bool avx2 = __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0;
  switch (level) {
    case Level::kPlain:
      return true;
    case Level::kAvx2:
      return avx2;
    case Level::kAvx512:
      return avx2 && __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512dq") != 0 &&
             __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512bw") != 0;
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
