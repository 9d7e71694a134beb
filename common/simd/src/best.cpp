#include <log4cplus/loggingmacros.h>

#include <cstdlib>

#include "common/logging/logging.hpp"
#include "common/simd/level.hpp"

// In a translation unit of its own, so that a program linked with the static library can put its own in its place, as
// the benchmarks do, which run all levels in one process.

namespace quen::common::simd {
namespace {

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
