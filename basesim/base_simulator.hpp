#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "defs/export.hpp"
#include "quen_image_processing/roi/roi.hpp"

/// @file
/// The calibration data that every simulator needs, loaded once from three FITS files.
///
/// The files are found by name through quen::common::FileSystem::FindFileOrThrow, in this order:
///
/// | file                 | content                                                                              |
/// |----------------------|--------------------------------------------------------------------------------------|
/// | `data/M2S.fits`      | primary image, BITPIX -64, NAXIS1 = 52 modes, NAXIS2 = 1214 slopes                     |
/// | `data/CM.fits`       | primary image, BITPIX -64, NAXIS1 = 1214 slopes, NAXIS2 = 52 modes                     |
/// | `data/shs_rois.fits` | table "rois", 1089 rows: x_low, x_up, y_low, y_up (16 bit), x_ref, y_ref (double);   |
/// |                      | table "rois_used": is_used (8 bit, non-zero = used)                                  |

namespace quen::basesim {

// The sensor's geometry. Fixed; the calibration files must agree with it.
inline constexpr std::size_t kNumRois = 1089;     ///< sub-apertures
inline constexpr std::size_t kFrameWidth = 840;   ///< pixels in a row
inline constexpr std::size_t kFrameHeight = 816;  ///< rows
inline constexpr std::size_t kNumModes = 52;      ///< of the modal basis
inline constexpr std::size_t kNumSlopes = 1214;   ///< two for each used sub-aperture

/// Owns the calibration. One that exists is completely loaded and does not change by itself.
class BaseSimulator {
 public:
  /// Loads the calibration. Allocates; touches no other object, so simulators may be made in several threads at once.
  ///
  /// @throws std::runtime_error     "Simulator can not initialize: " and the reason: a file or column is missing, a
  ///                                matrix has other axes, a table not 1089 rows, the search or CFITSIO failed
  /// @throws std::invalid_argument  a matrix is not BITPIX -64, or a region is invalid (the Roi's own text)
  /// @throws std::logic_error       a file is nowhere to be found and INTROOT is not set
  QUEN_EXPORT BaseSimulator();

  /// Modes-to-slopes matrix, 52 × 1214: the slope s of unit mode m is element m + 52 · s.
  [[nodiscard]] const std::vector<double>& M2s() const { return m2s; }

  /// Control matrix, 1214 × 52: the share of slope s in mode m is element s + 1214 · m.
  [[nodiscard]] const std::vector<double>& Cm() const { return cm; }

  /// The 1089 regions, in the order of the table.
  [[nodiscard]] const std::vector<image_processing::Roi>& Rois() const { return rois; }

  /// Usage flag of each sub-aperture, non-zero = used. As long as the file's column, whatever that is.
  [[nodiscard]] const std::vector<std::uint8_t>& RoisUsed() const { return rois_used; }

 protected:
  // NOLINTBEGIN(cppcoreguidelines-non-private-member-variables-in-classes): derived simulators work on the data.
  std::vector<double> m2s;                  ///< M2s()
  std::vector<double> cm;                   ///< Cm()
  std::vector<image_processing::Roi> rois;  ///< Rois()
  std::vector<std::uint8_t> rois_used;      ///< RoisUsed()
  // NOLINTEND(cppcoreguidelines-non-private-member-variables-in-classes)
};

}  // namespace quen::basesim
