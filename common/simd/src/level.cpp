#include "common/simd/level.hpp"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <cstdlib>

#include "common/logging/logging.hpp"

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

namespace {

Level Highest() {
  return IsAvailable(Level::kAvx512) ? Level::kAvx512 : IsAvailable(Level::kAvx2) ? Level::kAvx2 : Level::kPlain;
}

Level LevelOfTheProcess() {
  const char* const wish = std::getenv("QUEN_SIMD");
  const Choice choice = Choose(wish == nullptr ? "" : wish, Highest());
  if (!choice.warning.empty()) LOG4CPLUS_WARN(GetLogger(), choice.warning);
  return choice.level;
}

}  // namespace

Level Best() {
  static const Level level = LevelOfTheProcess();
  return level;
}

}  // namespace quen::common::simd
