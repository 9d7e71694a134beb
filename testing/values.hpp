#pragma once

#include <limits>

/// @file
/// Values that tests plant.

namespace quen::testing {

inline constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInfinity = std::numeric_limits<double>::infinity();
/// What nothing may overwrite.
inline constexpr double kSentinel = -12345.0;

}  // namespace quen::testing
