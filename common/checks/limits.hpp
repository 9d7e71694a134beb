#pragma once

namespace quen::common {

/// The numbers that a parameter may be.
struct Limits {
  double lowest = 0.0;
  double highest = 0.0;
  bool is_above = false;  ///< whether `lowest` itself is not among them
};

}  // namespace quen::common
