#pragma once

#include <gsl/span>

#include "defs/export.hpp"
#include "quen_image_processing/roi/roi.hpp"

/// @file
/// The contract of a centroiding engine: the object with which a host measures spots. The simulator prescribes no
/// method and never makes one; it drives whatever the host hands to ShsSimulator::ComputeSlopes.

namespace quen::image_processing {

/// Measures the spot of one sub-aperture of a frame with pixels of type T (std::uint16_t for the simulator).
///
/// An engine is changed by every call; one object must not be used by two simulators or threads at once.
template <typename T>
class QUEN_EXPORT Centroiding {
 public:
  virtual ~Centroiding() = default;

  /// Measures one spot and leaves the result in `flux`, `x` and `y`.
  ///
  /// @param frame  the whole frame, row-major, roi.x_max pixels per row: column c of row r is frame[r · x_max + c]
  /// @param roi    the only pixels that may contribute, and the reference point; may be empty (n_pixels 0)
  ///
  /// All three results are overwritten by each call and must be defined, for a dark or empty region too (NaN will do).
  /// May throw; ComputeSlopes passes the exception on.
  virtual void Compute(gsl::span<const T> frame, const Roi& roi) = 0;

  double flux = 0.0;  ///< light inside the region, in units of pixel values
  double x = 0.0;     ///< displacement along the columns from roi.x_ref, pixels, positive toward higher columns
  double y = 0.0;     ///< displacement along the rows from roi.y_ref, pixels, positive toward higher rows

 protected:
  Centroiding() = default;
  Centroiding(const Centroiding&) = default;
  Centroiding(Centroiding&&) noexcept = default;
  Centroiding& operator=(const Centroiding&) = default;
  Centroiding& operator=(Centroiding&&) noexcept = default;
};

}  // namespace quen::image_processing
