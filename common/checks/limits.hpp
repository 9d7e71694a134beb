#pragma once

namespace quen::common {

/// The numbers that a parameter may be.
struct Limits {
  double lowest;
  double highest;
  bool is_above = false;  ///< whether `lowest` itself is not among them
};

}  // namespace quen::common
