#pragma once

#include "common/simd/level.hpp"

namespace quen_benchmarks {

/// The level that the libraries run in this process: the best one, until this says another.
void SetProcessLevel(quen::common::simd::Level level);

}  // namespace quen_benchmarks
