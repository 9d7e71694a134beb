#include "shssim/shs_simulator.hpp"

#include <algorithm>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "common/random/random.hpp"
#include "common/simd/level.hpp"
#include "defs/camera.hpp"
#include "shssim/src/render_frame.hpp"
#include "shssim/src/slope_file.hpp"

// No name of defs/camera.hpp is used. It is here for its table of the product's cameras: each simulator carries one,
// made while the library is loaded.

namespace quen::shssim {
ShsSimulator::ShsSimulator()
    : frame_values(kFrameWidth * kFrameHeight),
      frame(kFrameWidth * kFrameHeight),
      flux_used(kNumRoisUsed),
      slopes(kNumSlopes),
      flux(kNumRois),
      x_slopes(kNumRois),
      x_slopes_used(kNumRoisUsed),
      y_slopes(kNumRois),
      y_slopes_used(kNumRoisUsed) {}

void ShsSimulator::ComputeFrame(gsl::span<const double> dx, gsl::span<const double> dy, double noise,
                                std::optional<std::string> path) {
  if (dx.size() != kNumRois || dy.size() != kNumRois || rois.size() != kNumRois) {
    throw std::invalid_argument("ShsSimulator::ComputeFrame: incompatible configuration");
  }
  if (HasPixels(rois)) {
    CheckNoise(noise);
    RenderFrame(common::simd::Best(), rois, dx, dy, noise, common::random::detail::MersenneTwisterEngine(),
                {frame_values, frame});
  }
  if (path) {
    const common::Fits::Handle file = common::Fits::FitsFileWrite(*path, true, std::nullopt);
    common::Fits::WriteImgPriv(file, frame.data(), frame.size(), SHORT_IMG, TSHORT, {kFrameWidth, kFrameHeight});
  }
}

void ShsSimulator::ComputeSlopes(image_processing::Centroiding<std::uint16_t>& centroiding, double slope_limit,
                                 std::optional<std::string> path) {
  std::size_t i = 0;  // sub-aperture
  std::size_t k = 0;  // used sub-aperture
  do {
    if (rois_used[i] == 0) {
      y_slopes[i] = x_slopes[i] = flux[i] = 0.0;
    } else {
      centroiding.Compute(frame, rois[i]);
      const double x = std::clamp(centroiding.x, -slope_limit, slope_limit);
      const double y = std::clamp(centroiding.y, -slope_limit, slope_limit);
      flux_used[k] = flux[i] = centroiding.flux;
      slopes[kNumRoisUsed + k] = x_slopes_used[k] = x_slopes[i] = x;
      slopes[k] = y_slopes_used[k] = y_slopes[i] = y;
      ++k;
    }
    ++i;
  } while (i < kNumRois && k < kNumRoisUsed);

  if (path) WriteSlopeFile(*path, {rois, rois_used, flux, x_slopes, y_slopes});
}

}  // namespace quen::shssim
