#pragma once

#include <cstdint>
#include <gsl/span>
#include <span>
#include <vector>

#include "workbench/serve/faults.hpp"

namespace quen::workbench {

/// What pixels of a stream can hold.
struct PixelLimits {
  std::uint16_t highest = 0;      ///< the most
  bool is_signed = true;          ///< whether 16 bits are to be read with a sign
  double units_per_cosmic = 1.0;  ///< of an electron, or of a unit
};

/// Puts faults into frames as they were drawn. Knows the frame before, as it was published.
class PixelFaults {
 public:
  explicit PixelFaults(const PixelLimits& range);

  /// @param drawn   840 × 816 pixels
  /// @param faults  of the frame; those that are no matter of pixels do nothing here
  /// @param number  of the frame, from which random places follow
  /// @return  the frame with them, good until the next call
  gsl::span<const std::uint16_t> Apply(gsl::span<const std::uint16_t> drawn, std::span<const Fault> faults,
                                       std::uint64_t number);

  /// The frame that was given back last. Black at first.
  [[nodiscard]] gsl::span<const std::uint16_t> Last() const { return last_; }

 private:
  void Apply(const Fault& fault, std::uint64_t number);
  void AddCosmics(const Fault& fault, std::uint64_t number);
  void Shift(const Fault& fault);
  void KeepRegion(const Fault& fault);

  PixelLimits range_;
  std::vector<std::uint16_t> last_;
  std::vector<std::uint16_t> next_;
  std::vector<std::uint16_t> shifted_;
};

}  // namespace quen::workbench
