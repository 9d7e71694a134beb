#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quen_image_processing/roi/roi.hpp"

namespace quen::shssim {

/// What ComputeSlopes writes: geometry and flags of the sub-apertures, and their measured flux and displacements.
struct SlopeTables {
  const std::vector<image_processing::Roi>& rois;
  const std::vector<std::uint8_t>& rois_used;
  const std::vector<double>& flux;
  const std::vector<double>& x_slopes;
  const std::vector<double>& y_slopes;
};

/// Appends the tables "rois", "rois_use" and "slopes" to the file at `path`. Exceptions of the FITS layer pass.
void WriteSlopeFile(const std::string& path, const SlopeTables& tables);

}  // namespace quen::shssim
