#pragma once

#include <cstdint>

#include "centroiders/pixel_engine.hpp"
#include "common/checks/limits.hpp"

namespace quen::centroiders {

/// What the window is around.
enum class WindowCentre {
  kReference,       ///< the region's reference point
  kBrightestPixel,  ///< the brightest pixel; the mean position of the brightest ones where several are equal
};

/// What the numbers of WindowedCentreOfGravityConfig may be.
struct WindowedCentreOfGravityLimits {
  static constexpr common::Limits kHalfWidth = {0.5, 1000.0};  ///< pixels
};

/// Where the window is, and how wide.
struct WindowedCentreOfGravityConfig {
  WindowCentre around = WindowCentre::kBrightestPixel;  ///< the window's centre
  double half_width = 6.0;                              ///< pixels, within WindowedCentreOfGravityLimits
};

/// The centre of gravity of those pixels whose column and row are at most `half_width` from the window's centre. The
/// window is clipped to the region. Flux is the light inside the window.
///
/// Around the reference, the window cuts more from the far side of a displaced spot: the response is below 1 and bends.
/// Around the brightest pixel it follows the spot, and errs periodically, by a fraction of a pixel.
///
/// No light is a flux of 0 or less, as that of a window that lies beside its region. Around the reference, a NaN
/// reference coordinate gives flux 0 and NaN for both displacements; around the brightest pixel, NaN along its axis.
class QUEN_EXPORT WindowedCentreOfGravity : public PixelEngine {
 public:
  /// @throws std::invalid_argument  `half_width` out of its range
  explicit WindowedCentreOfGravity(const WindowedCentreOfGravityConfig& config = {});

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  WindowedCentreOfGravityConfig config_;
};

}  // namespace quen::centroiders
