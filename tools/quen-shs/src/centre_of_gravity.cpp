#include "tools/quen-shs/src/centre_of_gravity.hpp"

#include <cstddef>

namespace quen_shs {

void CentreOfGravity::Compute(gsl::span<const std::uint16_t> frame, const quen::image_processing::Roi& roi) {
  std::int64_t sum = 0;
  std::int64_t sum_x = 0;
  std::int64_t sum_y = 0;
  for (std::int64_t row = roi.y_low; row < roi.y_up; ++row) {
    const auto pixels = frame.subspan(static_cast<std::size_t>(row) * roi.x_max + roi.x_low, roi.width);
    std::int64_t row_sum = 0;
    std::int64_t column = roi.x_low;
    for (const std::uint16_t pixel : pixels) {
      const std::int64_t light = static_cast<std::int16_t>(pixel);
      row_sum += light;
      sum_x += light * column++;
    }
    sum += row_sum;
    sum_y += row_sum * row;
  }
  flux = static_cast<double>(sum);
  x = sum > 0 ? static_cast<double>(sum_x) / flux - roi.x_ref : 0.0;
  y = sum > 0 ? static_cast<double>(sum_y) / flux - roi.y_ref : 0.0;
}

}  // namespace quen_shs
