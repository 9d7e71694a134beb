#pragma once

#include <cstddef>
#include <cstdint>
#include <gsl/span>
#include <optional>
#include <string>
#include <vector>

#include "basesim/base_simulator.hpp"
#include "defs/export.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"
#include "shssim/spot.hpp"

/// @file
/// The Shack-Hartmann sensor simulator: renders detector frames from spot displacements, and measures them with the
/// host's own centroiding engine.
///
/// Coordinates: columns are x, rows are y, pixel centres are at integers, pixel (x, y) of a frame is element
/// x + 840 · y. A displacement (dx, dy) moves a spot toward higher columns and rows.
///
/// A simulator starts no thread and takes no lock. One object must not be used by two threads at once; different
/// objects may. Noise comes from the calling thread's generator (common/random/random.hpp).

namespace quen::shssim {

using basesim::kFrameHeight;
using basesim::kFrameWidth;
using basesim::kNumModes;
using basesim::kNumRois;
using basesim::kNumSlopes;
inline constexpr std::size_t kNumRoisUsed = 607;  ///< length of the packed results

/// Renders and measures frames on the calibration that its base loads.
///
/// All buffers are made at construction and never resized.
class ShsSimulator : public basesim::BaseSimulator {
 public:
  /// Loads the calibration and makes the buffers, zero-filled.
  /// Throws what BaseSimulator throws.
  QUEN_EXPORT ShsSimulator();

  /// Renders one frame. Sub-aperture i draws, at each pixel (x, y) of its region,
  ///
  ///     4096 · exp(−((x − cx)² + (y − cy)²) / 8) + n,    cx = x_ref + dx[i],  cy = y_ref + dy[i],
  ///
  /// a Gaussian spot of standard deviation 2 pixels (shssim/spot.hpp) plus noise n, uniform in [−noise, noise).
  /// Sub-apertures are drawn in their order, pixels row by row, one draw of the thread's generator (two 32-bit outputs)
  /// each; where regions overlap the later one stands. Pixels outside all regions stay 0.
  ///
  /// FrameValues() takes the values as they are. Frame() takes them truncated toward zero to a 32-bit integer, of which
  /// the low 16 bits stay: neither rounded nor clamped, −1.5 gives 65535. Values beyond 32 bits and NaN give 0.
  ///
  /// @param dx     displacement along the columns of each of the 1089 spots from its reference point, pixels
  /// @param dy     the same along the rows
  /// @param noise  half-width of the noise, in units of pixel values, ≥ 0
  /// @param path   where to write Frame() as a FITS image of 840 × 816 signed 16-bit pixels (values from 32768 on land
  ///               as negative numbers); an existing file is replaced; none: nothing is written
  ///
  /// Without `path` nothing is allocated.
  ///
  /// @throws std::invalid_argument  dx or dy is not 1089 long (both frames unchanged)
  /// @throws std::runtime_error     the file cannot be written (both frames hold the new values), or the thread's
  ///                                generator cannot be seeded
  /// @throws std::filesystem::filesystem_error  a parent directory of the file cannot be made
  ///
  /// A negative or NaN `noise` ends the process at the first pixel drawn.
  QUEN_EXPORT void ComputeFrame(gsl::span<const double> dx, gsl::span<const double> dy, double noise,
                                std::optional<std::string> path = std::nullopt);

  /// Measures the used sub-apertures of the current frame, in their order, up to the 607th. Sub-apertures after that
  /// one keep their earlier results; unused ones before it get zeros.
  ///
  /// @param centroiding  measures each spot; its results are overwritten
  /// @param slope_limit  displacements are clamped to [−slope_limit, slope_limit], pixels; NaN results stay NaN, and a
  ///                     NaN limit clamps nothing; flux is stored as reported
  /// @param path         where to append the binary tables "rois" (regions; reference points truncated to pixels),
  ///                     "rois_use" (flags) and "slopes" (flux, x, y of all 1089 sub-apertures), each a new HDU of the
  ///                     file, which is created if it does not exist; none: nothing is written
  ///
  /// Without `path` nothing is allocated.
  ///
  /// @throws std::runtime_error  the file cannot be written (the results are complete; tables before the failure stay)
  /// @throws std::filesystem::filesystem_error  a parent directory of the file cannot be made
  ///
  /// Exceptions of `centroiding` pass unchanged. A negative `slope_limit` ends the process at the first used
  /// sub-aperture, and so does a list of flags that ends before the 607th used one.
  QUEN_EXPORT void ComputeSlopes(image_processing::Centroiding<std::uint16_t>& centroiding, double slope_limit,
                                 std::optional<std::string> path = std::nullopt);

  /// The last frame before its conversion to pixels, 840 × 816, row-major.
  [[nodiscard]] const std::vector<double>& FrameValues() const { return frame_values; }

  /// The last frame, 840 × 816, row-major.
  [[nodiscard]] const std::vector<std::uint16_t>& Frame() const { return frame; }

  /// Flux of the used sub-apertures, 607.
  [[nodiscard]] const std::vector<double>& FluxUsed() const { return flux_used; }

  /// The slope vector, 1214: the y displacements of the used sub-apertures, then their x displacements, pixels.
  [[nodiscard]] const std::vector<double>& Slopes() const { return slopes; }

  /// Flux of every sub-aperture, 1089; 0 where unused.
  [[nodiscard]] const std::vector<double>& Flux() const { return flux; }

  /// Displacement along the columns of every sub-aperture, 1089, pixels; 0 where unused.
  [[nodiscard]] const std::vector<double>& XSlopes() const { return x_slopes; }

  /// Displacement along the columns of the used sub-apertures, 607, pixels.
  [[nodiscard]] const std::vector<double>& XSlopesUsed() const { return x_slopes_used; }

  /// Displacement along the rows of every sub-aperture, 1089, pixels; 0 where unused.
  [[nodiscard]] const std::vector<double>& YSlopes() const { return y_slopes; }

  /// Displacement along the rows of the used sub-apertures, 607, pixels.
  [[nodiscard]] const std::vector<double>& YSlopesUsed() const { return y_slopes_used; }

 protected:
  // NOLINTBEGIN(cppcoreguidelines-non-private-member-variables-in-classes): derived simulators work on the data.
  std::vector<double> frame_values;   ///< FrameValues()
  std::vector<std::uint16_t> frame;   ///< Frame()
  std::vector<double> flux_used;      ///< FluxUsed()
  std::vector<double> slopes;         ///< Slopes()
  std::vector<double> flux;           ///< Flux()
  std::vector<double> x_slopes;       ///< XSlopes()
  std::vector<double> x_slopes_used;  ///< XSlopesUsed()
  std::vector<double> y_slopes;       ///< YSlopes()
  std::vector<double> y_slopes_used;  ///< YSlopesUsed()
  // NOLINTEND(cppcoreguidelines-non-private-member-variables-in-classes)
};

}  // namespace quen::shssim
