#include "centroiders/pixel_engine.hpp"

#include <limits>

#include "centroiders/src/pixels.hpp"

namespace quen::centroiders {

void PixelEngine::Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) {
  flux = x = y = 0.0;
  const Pixels pixels = PixelsOf(frame, roi);
  if (!pixels.IsEmpty()) Measure(pixels, ReferenceOf(roi));
}

bool PixelEngine::LacksReference(const Point& reference) {
  if (reference.IsKnown()) return false;
  x = y = std::numeric_limits<double>::quiet_NaN();
  return true;
}

}  // namespace quen::centroiders
